// How long a simulated proxy holds a request back before it answers.
#ifndef KORVAIN_EXAMPLES_DELAY_MODEL_H_
#define KORVAIN_EXAMPLES_DELAY_MODEL_H_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>

namespace example {

// Always the mean, evenly between 0 and twice the mean, or exponential around the mean; never more
// than the cap. All in milliseconds.
class DelayModel {
 public:
  DelayModel(const std::string& kind, double mean, double cap)
      : m_kind(kind), m_mean(mean), m_cap(cap) {}

  std::chrono::microseconds Draw(std::mt19937_64& random) const {
    const double delay = std::min(DrawUncapped(random), m_cap);
    return std::chrono::microseconds(static_cast<int64_t>(delay * 1000));
  }

 private:
  double DrawUncapped(std::mt19937_64& random) const {
    if (m_mean <= 0 || m_kind == "fixed") return m_mean;
    if (m_kind == "uniform") return std::uniform_real_distribution<>(0, 2 * m_mean)(random);
    return std::exponential_distribution<>(1 / m_mean)(random);
  }

  std::string m_kind;
  double m_mean;
  double m_cap;
};

}  // namespace example

#endif  // KORVAIN_EXAMPLES_DELAY_MODEL_H_
