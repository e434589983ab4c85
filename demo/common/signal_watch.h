// Signals as input of a poll loop.
#ifndef KORVAIN_DEMO_SIGNAL_WATCH_H_
#define KORVAIN_DEMO_SIGNAL_WATCH_H_

#include <initializer_list>

namespace demo {

// Takes signals out of the hands of the default action; they are waited for like input. A reader of
// standard output that goes away ends no program either.
class SignalWatch {
 public:
  explicit SignalWatch(std::initializer_list<int> signals);
  ~SignalWatch();
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

  // Waits until `fd` has input, a signal has come or the time is over. Returns the signal or 0.
  int Wait(int fd, int timeout_ms) const;

 private:
  int m_fd;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_SIGNAL_WATCH_H_
