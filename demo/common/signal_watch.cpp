#include "demo/common/signal_watch.h"

#include <fmt/core.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace demo {

SignalWatch::SignalWatch(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  m_fd = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (m_fd < 0) throw std::runtime_error(fmt::format("no signalfd: {}", strerror(errno)));
}

SignalWatch::~SignalWatch() {
  close(m_fd);
}

int SignalWatch::Wait(int fd, int timeout_ms) const {
  pollfd inputs[] = {{m_fd, POLLIN, 0}, {fd, POLLIN, 0}};
  poll(inputs, 2, timeout_ms);
  signalfd_siginfo info{};
  return read(m_fd, &info, sizeof(info)) == sizeof(info) ? static_cast<int>(info.ssi_signo) : 0;
}

}  // namespace demo
