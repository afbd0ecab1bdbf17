/// @file
/// Transport of the examples: texts in frames over a Unix-domain stream socket.
///
/// The library builds and reads texts; how they travel is the application's affair. A stream has no message
/// borders, so each text goes out behind its length: four bytes, most significant first. The length is
/// bounded, or a confused peer could make the receiver allocate gigabytes.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace demo {

constexpr std::size_t kMaxFrame = 262144;  ///< bytes of one text; a registration takes about 5 KiB
constexpr std::chrono::milliseconds kSendTimeout{5000};

using Clock = std::chrono::steady_clock;  // monotonic: waiting must not depend on somebody setting the time

/// Owns a file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept;
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();
  int Get() const { return m_fd; }

 private:
  int m_fd;
};

enum class Received { Frame, TimedOut, Closed };

/// One end of a conversation. One thread at a time. Faults of the socket or the framing leave as
/// std::runtime_error; the connection is of no use afterwards.
class Connection {
 public:
  explicit Connection(FileDescriptor socket);

  /// Connects to `path`, trying again until `timeout` is over: the other end may still be starting.
  static Connection Open(const std::string& path, std::chrono::milliseconds timeout);

  /// Sends one text whole, or throws after kSendTimeout. A peer that is gone is an exception, not a SIGPIPE.
  void Send(const std::string& text);

  /// Waits for the next text. A frame that has arrived in part when the time is over is kept and completed
  /// by a later call. Closed means that the peer ended the conversation between two frames.
  Received Receive(std::string* text, std::chrono::milliseconds timeout);

 private:
  bool TakeFrame(std::string* text);

  FileDescriptor m_socket;
  std::string m_arrived;  ///< bytes received and not yet handed out
};

/// A listening socket. The path is removed with the object.
class Listener {
 public:
  explicit Listener(const std::string& path);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  Connection Accept(std::chrono::milliseconds timeout);

 private:
  std::string m_path;
  FileDescriptor m_socket;
};

/// The value of a line "key: value" in a header text, "" when there is none.
std::string HeaderValue(const std::string& text, const std::string& key);

}  // namespace demo
