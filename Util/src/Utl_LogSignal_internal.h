/// @file
/// Internal, not installed: failing writes of the logging facility without the signals that they raise.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace pluginsdk::log {

/// While it lives, a write that fails raises no signal in this thread: neither SIGPIPE, when nobody reads the
/// pipe or socket, nor SIGXFSZ, at the limit of file sizes. The process's handling of them is not touched.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGPIPE);
    sigaddset(&both, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &both, &m_former);
    m_ours = both;
    if (sigismember(&m_former, SIGPIPE) == 1 || sigismember(&m_former, SIGXFSZ) == 1) {
      LeaveOthers();
    }
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

  /// Takes back the signal of a write that failed, before unblocking would deliver it.
  void Consume() const {
    constexpr timespec kNoWait = {};
    while (sigtimedwait(&m_ours, nullptr, &kNoWait) == -1 && errno == EINTR) {
    }
  }

 private:
  /// A signal that waits already is somebody else's and stays; none can wait where it was not blocked.
  void LeaveOthers() {
    sigset_t pending;
    sigpending(&pending);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&pending, signal) == 1) {
        sigdelset(&m_ours, signal);
      }
    }
  }

  sigset_t m_former;
  sigset_t m_ours;  // what a write of ours may have raised
};

}  // namespace pluginsdk::log
