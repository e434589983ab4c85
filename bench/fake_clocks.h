// The clocks that the library reads, in the hands of the benchmarks.
#ifndef KORVAIN_BENCH_FAKE_CLOCKS_H_
#define KORVAIN_BENCH_FAKE_CLOCKS_H_

#include <cstdint>
#include <optional>

namespace bench {

// What GetCurrentMilliseconds answers.
extern int64_t clock_ms;

// While set, the seconds that gettimeofday answers; the judge reads them.
extern std::optional<int64_t> wall_seconds;

}  // namespace bench

#endif  // KORVAIN_BENCH_FAKE_CLOCKS_H_
