// A table of linear probing that holds nothing but hashes, to count what a look-up has to probe.
#ifndef KORVAIN_BENCH_PROBE_SIMULATION_H_
#define KORVAIN_BENCH_PROBE_SIMULATION_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

using Hashes = std::vector<uint64_t>;

// Slots looked at until a present key is found: 1 when it stands where it belongs.
struct ProbeLengths {
  double mean;
  size_t longest;
};

// Slots of a table that has taken as many entries one by one: a power of two from 16 on, at least
// twice the entries.
size_t SlotsFor(size_t entries);

// With the keys' hashes, entered in this order and masked to the table's size.
ProbeLengths MeasureProbes(const Hashes& hashes);

// Two ways to mix a hash once more before it is masked: the product with an odd constant from its
// 32nd bit on, and the same product with its bytes in reverse.
Hashes WithMiddleOfProduct(Hashes hashes);
Hashes WithSwappedProduct(Hashes hashes);

}  // namespace bench

#endif  // KORVAIN_BENCH_PROBE_SIMULATION_H_
