// Processes killed at random moments while four threads log into the ring: what the segment holds then is
// right to the last completed line, or its header says that a line was being stored.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"

namespace {

using ringtool::HeaderVerdict;

constexpr int kKills = 240;
constexpr std::size_t kThreads = 4;

/// In memory that outlives the killed process.
struct Progress {
  std::atomic<bool> started;
  std::array<std::atomic<int>, kThreads> completed;  ///< lines whose call has returned
};

/// Tells from the number alone how the line must read, so that a torn or mixed one cannot pass.
std::string MessageOf(std::size_t thread, int number) {
  std::string message = "thread " + std::to_string(thread) + " line " + std::to_string(number) + " ";
  message.append(static_cast<std::size_t>(number % 97), static_cast<char>('a' + number % 26));
  return message + ".";
}

[[noreturn]] void LogUntilKilled(const std::string& root, int id, Progress& progress) {
  UTL_LOGInit("crash", root.c_str());
  UTL_LOGSetWriteToStdout(false);
  UTL_LOGPrint(UTL_LOG_INFO, "crash", 1, "F", "opens the file");
  if (UTL_LOGSetEnableInMemoryLogging(true, id) != 0) {
    ::_exit(1);
  }
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &progress] {
      for (int number = 0;; ++number) {
        UTL_LOGPrint(UTL_LOG_INFO, "crash", 1, "F", "%s", MessageOf(t, number).c_str());
        progress.completed[t].store(number + 1, std::memory_order_release);
        progress.started.store(true, std::memory_order_release);
      }
    });
  }
  for (;;) {
    ::pause();
  }
}

void SleepMicroseconds(long count) {
  const timespec time = {0, count * 1000};
  ::nanosleep(&time, nullptr);
}

void RunAndKill(const std::string& root, int id, Progress& progress, long microseconds) {
  new (&progress) Progress{};
  const pid_t child = ::fork();
  if (child == 0) {
    LogUntilKilled(root, id, progress);
  }
  while (!progress.started.load(std::memory_order_acquire) && ::waitpid(child, nullptr, WNOHANG) == 0) {
    SleepMicroseconds(100);
  }
  SleepMicroseconds(microseconds);
  ::kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

//// The message of a whole line of ours; empty for anything else.
std::string_view MessageIn(std::string_view line) {
  constexpr std::string_view tag = " INFO  |";
  constexpr std::string_view position = "|crash:1:F| ";
  constexpr std::size_t timeSize = 15;
  const std::size_t at = line.find(position);
  const bool whole = line.size() > timeSize && line.substr(timeSize, tag.size()) == tag;
  return whole && at != std::string_view::npos ? line.substr(at + position.size()) : std::string_view();
}

/// Every line but a cut first one is whole and right; each thread's numbers follow one another up to the last
/// completed line, or to the one after it, which was stored when its thread was killed.
void ExpectAllCompletedLines(const ringtool::Reading& reading, const Progress& progress) {
  const std::string_view contents = reading.contents;
  std::array<int, kThreads> next = {};
  std::size_t begin = reading.frontCut ? contents.find('\n') + 1 : 0;
  for (std::size_t end = 0; begin < contents.size(); begin = end + 1) {
    end = contents.find('\n', begin);
    ASSERT_NE(end, std::string_view::npos);
    const std::string message(MessageIn(contents.substr(begin, end - begin)));
    std::size_t t = kThreads;
    int number = 0;
    ASSERT_EQ(std::sscanf(message.c_str(), "thread %zu line %d", &t, &number), 2) << message;
    ASSERT_LT(t, kThreads);
    ASSERT_EQ(message, MessageOf(t, number));
    const bool first = next[t] == 0 && reading.state.wrapped == 1;
    ASSERT_TRUE(first || number == next[t]) << message;
    next[t] = number + 1;
  }
  for (std::size_t t = 0; t < kThreads; ++t) {
    const int ahead = next[t] - progress.completed[t].load();
    const bool overwritten = reading.state.wrapped == 1 && next[t] == 0;
    EXPECT_TRUE(overwritten || ahead == 0 || ahead == 1) << "thread " << t << ": " << ahead;
  }
}

TEST(LogCrash, AKilledProcessLeavesEveryCompletedLineOrSaysThatOneWasBeingStored) {
  const logtest::TemporaryDirectory root;
  void* shared = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& progress = *static_cast<Progress*>(shared);
  std::mt19937 random(std::random_device{}());
  int consistent = 0;
  int wrapped = 0;
  for (int i = 0; i < kKills; ++i) {
    const logtest::TestRing ring;
    RunAndKill(root.path(), ring.id(), progress, static_cast<long>(random() % (i % 8 == 0 ? 30000 : 3000)));
    const ringtool::Reading reading = ring.Read();
    if (reading.verdict == HeaderVerdict::kBeingChanged) {
      continue;
    }
    ASSERT_EQ(reading.verdict, HeaderVerdict::kConsistent);
    ASSERT_FALSE(reading.contents.empty());
    ExpectAllCompletedLines(reading, progress);
    ++consistent;
    wrapped += reading.state.wrapped;
    ASSERT_FALSE(HasFatalFailure()) << "kill " << i;
  }
  ::munmap(shared, sizeof(Progress));
  EXPECT_GT(consistent, kKills / 10);
  RecordProperty("consistent", consistent);
  std::printf("%d kills: %d rings whole (%d of them wrapped), %d said that a line was being stored\n", kKills,
              consistent, wrapped, kKills - consistent);
}

TEST(LogCrash, TheNextRunWritesWhatTheKilledOneLeft) {
  const logtest::TemporaryDirectory root;
  const logtest::TestRing ring;
  void* shared = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  ringtool::Reading left;
  while (left.verdict != HeaderVerdict::kConsistent) {
    RunAndKill(root.path(), ring.id(), *static_cast<Progress*>(shared), 500);
    left = ring.Read();
  }
  ::munmap(shared, sizeof(Progress));
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("crash", root.c_str());
    UTL_LOGSetMax(8 * 524288);
    UTL_LOGPrint(UTL_LOG_INFO, "crash", 1, "F", "next run");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, ring.id()), 0);
    UTL_LOGFlushInMemoryLogs();
  });
  logtest::ExpectCleanExit(result);
  const std::string file = logtest::ReadFile(logtest::FilesIn(root.seriesOf("crash")).back());
  EXPECT_NE(file.find("| next run\n"), std::string::npos);
  EXPECT_TRUE(file.size() > left.contents.size() &&
              file.substr(file.size() - left.contents.size()) == left.contents);
}

}  // namespace
