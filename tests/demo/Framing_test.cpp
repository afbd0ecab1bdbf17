#include "Framing.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace demo {
namespace {

using std::chrono::milliseconds;

/// A connection, and the raw other end of its stream.
struct Pair {
  FileDescriptor raw;
  Connection connection;

  static Pair New() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    return {FileDescriptor(ends[0]), Connection(FileDescriptor(ends[1]))};
  }
  void Write(const std::string& bytes) {
    ASSERT_EQ(::send(raw.Get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
};

template <class Action>
std::string Thrown(const Action& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing";
}

TEST(Framing, FramesAreFoundHoweverTheStreamIsCut) {
  const std::string stream = std::string("\0\0\0\0", 4) + std::string("\0\0\0\1a", 5) +
                             std::string("\0\0\1\2", 4) + std::string(258, 'x');
  const std::vector<std::string> frames = {"", "a", std::string(258, 'x')};
  for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{7}, stream.size()}) {
    SCOPED_TRACE(piece);
    Pair pair = Pair::New();
    std::vector<std::string> received;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
      pair.Write(stream.substr(at, piece));
      std::string text;
      while (pair.connection.Receive(&text, milliseconds(0)) == Received::Frame) {
        received.push_back(text);
      }
    }
    EXPECT_EQ(received, frames);
  }
}

TEST(Framing, LengthIsBoundedOnBothSides) {
  Pair pair = Pair::New();
  EXPECT_EQ(Thrown([&] { pair.connection.Send(std::string(kMaxFrame + 1, 'x')); }),
            "frame of 262145 bytes exceeds the limit");
  pair.Write(std::string("\0\4\0\1", 4));  // 262145
  std::string text;
  EXPECT_EQ(Thrown([&] { pair.connection.Receive(&text, milliseconds(1000)); }),
            "the peer announces a frame of 262145 bytes");
}

TEST(Framing, LargestFrameTravelsInManyWrites) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const int small = 4096;
  ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
  Connection sender{FileDescriptor(ends[0])};
  Connection receiver{FileDescriptor(ends[1])};
  const std::string sent(kMaxFrame, 'y');
  std::thread thread([&] { sender.Send(sent); });
  std::string text;
  EXPECT_EQ(receiver.Receive(&text, milliseconds(10000)), Received::Frame);
  thread.join();
  EXPECT_TRUE(text == sent);
}

TEST(Framing, PeerThatGoes) {
  struct Row {
    const char* name;
    std::string before;  // bytes that still arrive
    const char* thrown;
  };
  const Row rows[] = {
      {"between two frames", "", "nothing"},
      {"within the length", std::string("\0\0", 2), "the peer closed in the middle of a frame"},
      {"within the text", std::string("\0\0\0\2a", 5), "the peer closed in the middle of a frame"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Pair pair = Pair::New();
    pair.Write(row.before);
    pair.raw = FileDescriptor();
    std::string text;
    Received result = Received::Frame;
    EXPECT_EQ(Thrown([&] { result = pair.connection.Receive(&text, milliseconds(1000)); }), row.thrown);
    EXPECT_TRUE(!row.before.empty() || result == Received::Closed);
    EXPECT_EQ(Thrown([&] { pair.connection.Send("x"); }), "send: Broken pipe");  // and no SIGPIPE
  }
}

// Signals that arrive all the time must neither end a wait early nor make it fail.
TEST(Framing, WaitingSurvivesSignals) {
  struct sigaction action {};
  action.sa_handler = [](int) {};  // without SA_RESTART: calls return with EINTR
  struct sigaction former {};
  ::sigaction(SIGALRM, &action, &former);
  const itimerval often = {{0, 2000}, {0, 2000}};
  ::setitimer(ITIMER_REAL, &often, nullptr);

  Pair pair = Pair::New();
  std::string text;
  const auto start = Clock::now();
  EXPECT_EQ(pair.connection.Receive(&text, milliseconds(100)), Received::TimedOut);
  EXPECT_GE(Clock::now() - start, milliseconds(100));

  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &former, nullptr);
}

TEST(Framing, ListenerAndItsPath) {
  char directory[] = "/tmp/pluginsdk-framing.XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  const std::string base = std::string(directory) + "/";
  const std::string longest = base + std::string(107 - base.size(), 's');
  EXPECT_EQ(
      Thrown([&] { Listener listener(longest + "s"); }).rfind("socket path must have 1 to 107 bytes", 0), 0U);
  EXPECT_EQ(Thrown([&] { Connection::Open(longest, milliseconds(0)); }),
            "connect to " + longest + ": No such file or directory");
  {
    Listener listener(longest);
    EXPECT_EQ(Thrown([&] { Listener second(longest); }), "bind to " + longest + ": Address already in use");
    EXPECT_EQ(Thrown([&] { listener.Accept(milliseconds(10)); }), "nobody connected in time");
    Connection plugin = Connection::Open(longest, milliseconds(1000));
    Connection agent = listener.Accept(milliseconds(1000));
    plugin.Send("hello");
    std::string text;
    EXPECT_EQ(agent.Receive(&text, milliseconds(1000)), Received::Frame);
    EXPECT_EQ(text, "hello");
  }
  EXPECT_FALSE(std::filesystem::exists(longest));
  ::rmdir(directory);
}

TEST(Framing, HeaderValues) {
  const std::string header = "HELLO plugin: x\nversion: v2\nempty: \naccessTicket: abc";
  EXPECT_EQ(HeaderValue(header, "version"), "v2");
  EXPECT_EQ(HeaderValue(header, "empty"), "");
  EXPECT_EQ(HeaderValue(header, "accessTicket"), "abc");  // the last line needs no end
  EXPECT_EQ(HeaderValue(header, "Ticket"), "");           // only whole keys, at the start of a line
  EXPECT_EQ(HeaderValue(header, "plugin"), "");
}

}  // namespace
}  // namespace demo
