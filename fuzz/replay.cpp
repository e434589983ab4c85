// Runs a fuzz target without a fuzzer: over its corpus, and over random variations of that, the
// same ones in every run. Where the target stops, the input is kept.
// Usage: <target> CORPUS-DIRECTORY|FILE [VARIATIONS]
#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr const char* FINDING = "finding.input";
constexpr size_t MOST_BYTES = 600;

std::string current;

void KeepCurrent(int /*signal*/) {
  std::ofstream(FINDING, std::ios::binary) << current;
  fprintf(stderr, "the input is kept in %s\n", FINDING);
  std::_Exit(1);
}

void Run(const std::string& input) {
  current = input;
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(current.data()), current.size());
}

std::vector<std::string> ReadInputs(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) files.push_back(entry);
  } else if (std::filesystem::exists(path)) {
    files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  std::vector<std::string> inputs;
  for (const auto& file : files) {
    std::ifstream bytes(file, std::ios::binary);
    inputs.emplace_back(std::istreambuf_iterator<char>(bytes), std::istreambuf_iterator<char>());
  }
  return inputs;
}

class Variations {
 public:
  explicit Variations(const std::vector<std::string>& inputs) : m_inputs(inputs) {}

  // The beginning of one input and the end of another, with some bytes drawn anew.
  std::string Next() {
    const std::string& front = m_inputs[Below(m_inputs.size())];
    const std::string& back = m_inputs[Below(m_inputs.size())];
    std::string input =
        front.substr(0, Below(front.size() + 1)) + back.substr(Below(back.size() + 1));
    input.resize(std::min(input.size() + Below(8), MOST_BYTES));
    for (size_t draws = Below(10); draws > 0 && !input.empty(); --draws) {
      input[Below(input.size())] = static_cast<char>(m_random());
    }
    return input;
  }

 private:
  size_t Below(size_t limit) { return static_cast<size_t>(m_random()) % limit; }

  const std::vector<std::string>& m_inputs;
  std::mt19937 m_random;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> inputs = ReadInputs(argc > 1 ? argv[1] : "");
  if (inputs.empty()) {
    fprintf(stderr, "usage: %s CORPUS-DIRECTORY|FILE [VARIATIONS]\n", argv[0]);
    return 2;
  }
  std::signal(SIGABRT, KeepCurrent);
  for (const std::string& input : inputs) Run(input);
  const long variations = argc > 2 ? strtol(argv[2], nullptr, 10) : 0;
  Variations random(inputs);
  for (long i = 0; i < variations; ++i) Run(random.Next());
  printf("%zu inputs and %ld variations agree\n", inputs.size(), variations);
}
