// The resident memory of the own process.
#ifndef KORVAIN_BENCH_RESIDENT_MEMORY_H_
#define KORVAIN_BENCH_RESIDENT_MEMORY_H_

#include <fstream>
#include <stdexcept>
#include <string>

namespace bench {

// Kilobytes, counted page by page.
inline long ResidentKilobytes() {
  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string word; rollup >> word;) {
    long kilobytes = 0;
    if (word == "Rss:" && rollup >> kilobytes) return kilobytes;
  }
  throw std::runtime_error("/proc/self/smaps_rollup cannot be read");
}

}  // namespace bench

#endif  // KORVAIN_BENCH_RESIDENT_MEMORY_H_
