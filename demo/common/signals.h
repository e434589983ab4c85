// Signals as input of a program's loop.
#ifndef KORVAIN_DEMO_SIGNALS_H_
#define KORVAIN_DEMO_SIGNALS_H_

#include <csignal>
#include <initializer_list>

namespace demo {

// Takes signals out of the hands of the default action: they wait until they are asked for. A
// reader of standard output that goes away ends no program either.
class Signals {
 public:
  explicit Signals(std::initializer_list<int> signals) {
    sigemptyset(&m_set);
    for (const int signal : signals) sigaddset(&m_set, signal);
    sigprocmask(SIG_BLOCK, &m_set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
  }

  // One that has come, or a number below 1.
  int Take() const {
    const timespec at_once{};
    return sigtimedwait(&m_set, nullptr, &at_once);
  }

 private:
  sigset_t m_set;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_SIGNALS_H_
