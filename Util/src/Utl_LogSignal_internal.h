/// @file
/// Internal, not installed: failing writes of the logging facility without the signals that they raise.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <csignal>

namespace pluginsdk::log {

/// While it lives, a write that fails raises no `signal` in this thread: SIGPIPE when nobody reads the pipe
/// or socket, SIGXFSZ at the limit of file sizes. The process's handling of the signal is not touched.
class SignalBlock {
 public:
  explicit SignalBlock(int signal) {
    sigemptyset(&m_signal);
    sigaddset(&m_signal, signal);
    pthread_sigmask(SIG_BLOCK, &m_signal, &m_former);
    // One that waits already is somebody else's and stays; none can wait where it was not blocked.
    sigset_t pending;
    m_wasPending = sigismember(&m_former, signal) == 1 && sigpending(&pending) == 0 &&
                   sigismember(&pending, signal) == 1;
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

  /// Takes back the signal of a write that failed, before unblocking would deliver it.
  void Consume() const {
    constexpr timespec kNoWait = {};
    while (!m_wasPending && sigtimedwait(&m_signal, nullptr, &kNoWait) == -1 && errno == EINTR) {
    }
  }

 private:
  sigset_t m_signal;
  sigset_t m_former;
  bool m_wasPending;
};

}  // namespace pluginsdk::log
