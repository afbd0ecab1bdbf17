#include "Framing.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

namespace demo {
namespace {

constexpr std::size_t kLengthSize = 4;
constexpr std::chrono::milliseconds kConnectPause{20};

[[noreturn]] void Fail(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

FileDescriptor NewSocket() {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.Get() < 0) {
    Fail("socket", errno);
  }
  return socket;
}

sockaddr_un Address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  // The kernel's limit is small; cutting the path silently would name another file.
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    throw std::runtime_error("socket path must have 1 to " + std::to_string(sizeof(address.sun_path) - 1) +
                             " bytes: " + path);
  }
  path.copy(address.sun_path, path.size());
  return address;
}

// The sockets interface takes every address family through this one type.
const sockaddr* Generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

/// Waits until `events` can be served; false when the deadline passes first.
bool WaitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(std::max<std::int64_t>(0, left.count())));
    if (ready > 0) {
      return true;
    }
    if (ready == 0) {
      return false;
    }
    if (errno != EINTR) {  // a signal only cuts the wait short
      Fail("poll", errno);
    }
  }
}

/// One attempt to read without waiting. 0 at the end of the stream, -1 when nothing is there right now.
ssize_t ReceiveSome(int fd, char* buffer, std::size_t size) {
  const ssize_t count = ::recv(fd, buffer, size, MSG_DONTWAIT);
  if (count < 0 && errno == ECONNRESET) {
    return 0;  // a peer that died with unread data is as gone as one that closed
  }
  if (count < 0 && errno != EINTR && errno != EAGAIN) {
    Fail("recv", errno);
  }
  return count;
}

}  // namespace

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  std::swap(m_fd, other.m_fd);
  return *this;
}

FileDescriptor::~FileDescriptor() {
  if (m_fd >= 0) {
    ::close(m_fd);
  }
}

Connection::Connection(FileDescriptor socket) : m_socket(std::move(socket)) {}

Connection Connection::Open(const std::string& path, std::chrono::milliseconds timeout) {
  const sockaddr_un address = Address(path);
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    FileDescriptor socket = NewSocket();
    if (::connect(socket.Get(), Generic(address), sizeof(address)) == 0) {
      return Connection(std::move(socket));
    }
    const int error = errno;
    const bool notThereYet = error == ENOENT || error == ECONNREFUSED || error == EINTR;
    if (!notThereYet || Clock::now() >= deadline) {
      Fail("connect to " + path, error);
    }
    std::this_thread::sleep_for(kConnectPause);
  }
}

void Connection::Send(const std::string& text) {
  if (text.size() > kMaxFrame) {
    throw std::runtime_error("frame of " + std::to_string(text.size()) + " bytes exceeds the limit");
  }
  std::string frame;
  frame.reserve(kLengthSize + text.size());
  for (int shift = 24; shift >= 0; shift -= 8) {
    frame.push_back(static_cast<char>((text.size() >> shift) & 0xff));
  }
  frame += text;

  const auto deadline = Clock::now() + kSendTimeout;
  for (std::size_t sent = 0; sent < frame.size();) {
    // MSG_NOSIGNAL: the death of the peer must not be the death of this process.
    const ssize_t count =
        ::send(m_socket.Get(), frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);  // possibly less than asked for
    } else if (errno != EINTR && errno != EAGAIN) {
      Fail("send", errno);
    } else if (!WaitFor(m_socket.Get(), POLLOUT, deadline)) {
      throw std::runtime_error("the peer takes no data");
    }
  }
}

Received Connection::Receive(std::string* text, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (!TakeFrame(text)) {
    if (!WaitFor(m_socket.Get(), POLLIN, deadline)) {
      return Received::TimedOut;
    }
    char buffer[8192];
    const ssize_t count = ReceiveSome(m_socket.Get(), buffer, sizeof(buffer));
    if (count > 0) {
      m_arrived.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 && m_arrived.empty()) {
      return Received::Closed;
    } else if (count == 0) {
      throw std::runtime_error("the peer closed in the middle of a frame");
    }
  }
  return Received::Frame;
}

/// Moves the first whole frame out of what has arrived; false when it is not complete yet.
bool Connection::TakeFrame(std::string* text) {
  if (m_arrived.size() < kLengthSize) {
    return false;
  }
  std::size_t length = 0;
  for (std::size_t i = 0; i < kLengthSize; ++i) {
    length = length << 8 | static_cast<unsigned char>(m_arrived[i]);
  }
  if (length > kMaxFrame) {
    throw std::runtime_error("the peer announces a frame of " + std::to_string(length) + " bytes");
  }
  if (m_arrived.size() < kLengthSize + length) {
    return false;
  }
  text->assign(m_arrived, kLengthSize, length);
  m_arrived.erase(0, kLengthSize + length);
  return true;
}

Listener::Listener(const std::string& path) : m_socket(NewSocket()) {
  const sockaddr_un address = Address(path);
  if (::bind(m_socket.Get(), Generic(address), sizeof(address)) != 0) {
    Fail("bind to " + path, errno);
  }
  m_path = path;  // only from here on is the path ours to remove
  if (::listen(m_socket.Get(), 1) != 0) {
    const int error = errno;
    ::unlink(path.c_str());
    Fail("listen on " + path, error);
  }
}

Listener::~Listener() {
  ::unlink(m_path.c_str());
}

Connection Listener::Accept(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (WaitFor(m_socket.Get(), POLLIN, deadline)) {
    FileDescriptor peer(::accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (peer.Get() >= 0) {
      return Connection(std::move(peer));
    }
    if (errno != EINTR && errno != ECONNABORTED) {
      Fail("accept", errno);
    }
  }
  throw std::runtime_error("nobody connected in time");
}

std::string HeaderValue(const std::string& text, const std::string& key) {
  const std::string wanted = "\n" + key + ": ";
  const std::size_t start = text.find(wanted);
  if (start == std::string::npos) {
    return "";
  }
  const std::size_t from = start + wanted.size();
  return text.substr(from, text.find('\n', from) - from);
}

}  // namespace demo
