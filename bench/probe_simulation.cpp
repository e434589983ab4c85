#include "probe_simulation.h"

#include <algorithm>
#include <optional>

namespace bench {

namespace {

using Slots = std::vector<std::optional<uint64_t>>;

constexpr size_t LEAST_SLOTS = 16;
constexpr uint64_t ODD = 0x9E3779B97F4A7C15u;  // 2^64 divided by the golden ratio

void Enter(uint64_t hash, Slots& slots) {
  const size_t mask = slots.size() - 1;
  size_t index = hash & mask;
  while (slots[index]) index = (index + 1) & mask;
  slots[index] = hash;
}

Slots Doubled(const Slots& slots) {
  Slots doubled(2 * slots.size());
  for (const auto& hash : slots) {
    if (hash) Enter(*hash, doubled);
  }
  return doubled;
}

}  // namespace

size_t SlotsFor(size_t entries) {
  size_t slots = LEAST_SLOTS;
  while (slots < 2 * entries) slots *= 2;
  return slots;
}

ProbeLengths MeasureProbes(const Hashes& hashes) {
  Slots slots(LEAST_SLOTS);
  for (size_t entries = 0; entries < hashes.size(); ++entries) {
    if (slots.size() < SlotsFor(entries + 1)) slots = Doubled(slots);
    Enter(hashes[entries], slots);
  }
  size_t sum = 0;
  size_t longest = 0;
  for (size_t index = 0; index < slots.size(); ++index) {
    if (!slots[index]) continue;
    const size_t probes = ((index - *slots[index]) & (slots.size() - 1)) + 1;
    sum += probes;
    longest = std::max(longest, probes);
  }
  return {static_cast<double>(sum) / static_cast<double>(hashes.size()), longest};
}

Hashes WithMiddleOfProduct(Hashes hashes) {
  for (uint64_t& hash : hashes) hash = (hash * ODD) >> 32;
  return hashes;
}

Hashes WithSwappedProduct(Hashes hashes) {
  for (uint64_t& hash : hashes) hash = __builtin_bswap64(hash * ODD);
  return hashes;
}

}  // namespace bench
