// Prints how far the look-ups of the library's hashes probe in a table of linear probing, with keys
// that networks and operators hand out and with such as were chosen to collide.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "accesses.h"
#include "probe_simulation.h"
#include "spaced_ids.h"

namespace bench {
namespace {

Hashes HashesOf(const Accesses& accesses) {
  Hashes hashes;
  for (const Access& access : accesses) hashes.push_back(AccessHash()(access));
  return hashes;
}

// One port of `addresses` consecutive addresses in each of `zones` zones.
Accesses Network(int32_t zones, uint32_t addresses, int32_t port) {
  Accesses accesses;
  for (int32_t zone = 0; zone < zones; ++zone) {
    for (uint32_t i = 0; i < addresses; ++i) accesses.push_back({zone, NetworkAddress(i), port});
  }
  return accesses;
}

Accesses Ports(uint16_t count, bool is_network_order) {
  Accesses accesses;
  for (uint16_t port = 1; port <= count; ++port) {
    accesses.push_back({1, NetworkAddress(1), is_network_order ? htons(port) : port});
  }
  return accesses;
}

// Of all ports of the addresses from 10.0.0.0 on, the first whose home is the slot 0.
Accesses Colliding(size_t count) {
  const size_t mask = SlotsFor(count) - 1;
  Accesses accesses;
  for (uint32_t address = 0; accesses.size() < count; ++address) {
    for (int32_t port = 1; port < 65536 && accesses.size() < count; ++port) {
      const Access access{1, NetworkAddress(address), port};
      if ((AccessHash()(access) & mask) == 0) accesses.push_back(access);
    }
  }
  return accesses;
}

// On average over several draws, since one of few keys may be lucky.
ProbeLengths MeasureRandomProbes(size_t count) {
  constexpr size_t DRAWS = 8;
  std::mt19937 random(1);
  ProbeLengths average{0, 0};
  for (size_t draw = 0; draw < DRAWS; ++draw) {
    Hashes hashes(count);
    for (uint64_t& hash : hashes) hash = random();
    const ProbeLengths lengths = MeasureProbes(hashes);
    average.mean += lengths.mean / DRAWS;
    average.longest += lengths.longest;
  }
  average.longest /= DRAWS;
  return average;
}

Hashes KeyHashes(VariedIds varied, int shift) {
  Hashes hashes;
  for (const Pair& pair : SpacedPairs(varied, shift, 1024)) {
    hashes.push_back(
        KorvainService::StatisticKeyHash()(KorvainService::GetKey(pair.app, pair.zone)));
  }
  return hashes;
}

void PrintCells(const ProbeLengths& lengths) {
  printf(" %9.2f %7zu", lengths.mean, lengths.longest);
}

void PrintAccessRow(const char* text, const Accesses& accesses) {
  const Hashes hashes = HashesOf(accesses);
  printf("%-46s %8zu %8zu", text, hashes.size(), SlotsFor(hashes.size()));
  PrintCells(MeasureProbes(hashes));
  PrintCells(MeasureRandomProbes(hashes.size()));
  PrintCells(MeasureProbes(WithMiddleOfProduct(hashes)));
  PrintCells(MeasureProbes(WithSwappedProduct(hashes)));
  printf("\n");
}

void PrintAccessTable() {
  printf("%-46s %8s %8s %17s %17s %17s %17s\n", "", "", "", "masked hash", "random keys",
         "product's middle", "product swapped");
  printf("%-46s %8s %8s", "probes of the access index", "entries", "slots");
  for (int column = 0; column < 4; ++column) printf(" %9s %7s", "mean", "longest");
  printf("\n");
  PrintAccessRow("10.0.0.0 to 10.0.0.255, port 9000", Network(1, 256, 9000));
  PrintAccessRow("the same, port in network order", Network(1, 256, htons(9000)));
  PrintAccessRow("a /16 network, port 9000", Network(1, 65536, 9000));
  PrintAccessRow("the same, port in network order", Network(1, 65536, htons(9000)));
  PrintAccessRow("one address, ports 1 to 10,000", Ports(10000, false));
  PrintAccessRow("the same, in network order", Ports(10000, true));
  PrintAccessRow("1,000 zones with the same 256 endpoints", Network(1000, 256, 9000));
  PrintAccessRow("the same, port in network order", Network(1000, 256, htons(9000)));
  PrintAccessRow("endpoints chosen to collide when masked", Colliding(10000));
}

void PrintKeyRow(const char* text, VariedIds varied) {
  printf("%-46s", text);
  size_t worst = 0;
  for (int shift = 0; shift <= 22; ++shift) {
    const ProbeLengths lengths = MeasureProbes(KeyHashes(varied, shift));
    worst = std::max(worst, lengths.longest);
    if (shift % 8 == 0 || shift == 22) PrintCells(lengths);
  }
  printf(" %7zu\n", worst);
}

void PrintKeyTable() {
  printf("\n%-46s %17s %17s %17s %17s %7s\n", "", "1 apart", "2^8", "2^16", "2^22", "any");
  printf("%-46s", "probes of the records, 1,024 keys");
  for (int column = 0; column < 4; ++column) printf(" %9s %7s", "mean", "longest");
  printf(" %7s\n", "longest");
  PrintKeyRow("zone ids, one application", ZONES);
  PrintKeyRow("application ids, one zone", APPS);
  PrintKeyRow("both", BOTH);
}

}  // namespace
}  // namespace bench

int main() {
  bench::PrintAccessTable();
  bench::PrintKeyTable();
  return 0;
}
