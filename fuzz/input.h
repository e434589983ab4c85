// The bytes of one fuzzed input, read as choices, numbers and texts. Behind its end all are zero.
#ifndef KORVAIN_FUZZ_INPUT_H_
#define KORVAIN_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <string>

// Ends the run where the library and its second statement differ.
#define FUZZ_CHECK(condition) ((condition) ? void() : fuzz::Stop(__FILE__, __LINE__, #condition))

namespace fuzz {

[[noreturn]] inline void Stop(const char* file, int line, const char* condition) {
  fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
  abort();
}

class Input {
 public:
  Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

  bool IsOver() const { return m_size == 0; }

  int Byte() {
    if (m_size == 0) return 0;
    --m_size;
    return *m_data++;
  }

  int Below(int count) { return Byte() % count; }

  // As likely a number at an edge as any other.
  template <class Number>
  Number Any() {
    constexpr int64_t EDGES[] = {0,   1,   -1,  2,     255,   256,      257,
                                 127, 128, 999, 32767, 65536, 71582788, 71582789};
    using Limits = std::numeric_limits<Number>;
    const int choice = Byte();
    const auto edge = static_cast<size_t>(choice / 2);
    if (choice % 2 == 0 && edge < std::size(EDGES)) return static_cast<Number>(EDGES[edge]);
    if (choice % 2 == 0) return edge % 2 == 0 ? Limits::min() : Limits::max();
    uint64_t bits = 0;
    for (size_t i = 0; i < sizeof(Number); ++i) bits = bits << 8 | static_cast<uint64_t>(Byte());
    return static_cast<Number>(bits);
  }

  // Up to `most` bytes, led by their number.
  std::string Text(int most) {
    std::string text(static_cast<size_t>(Below(most + 1)), '\0');
    for (char& c : text) c = static_cast<char>(Byte());
    return text;
  }

  // All that is left.
  std::string Rest() {
    std::string text(reinterpret_cast<const char*>(m_data), m_size);
    m_size = 0;
    return text;
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
};

}  // namespace fuzz

#endif  // KORVAIN_FUZZ_INPUT_H_
