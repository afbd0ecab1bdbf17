// Processes killed at random moments while four threads log into the ring: what the segment holds then is
// right to the last completed line, or its header says that a line was being stored.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <random>
#include <thread>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"

using namespace logtest;

namespace {

constexpr int kKills = 240;
constexpr std::size_t kThreads = 4;
using Completed = std::array<std::atomic<int>, kThreads>;  // lines of each thread whose call has returned

// Tells from the number alone how the line must read, so that a torn or mixed one cannot pass.
std::string MessageOf(std::size_t thread, int number) {
  std::string message = "thread " + std::to_string(thread) + " line " + std::to_string(number) + " ";
  return message.append(static_cast<std::size_t>(number % 97), static_cast<char>('a' + number % 26)) + ".";
}

void LogUntilKilled(const std::string& root, int id, Completed& completed) {
  UTL_LOGInit("crash", root.c_str());
  UTL_LOGSetWriteToStdout(false);
  Print("opens the file");
  UTL_LOGSetEnableInMemoryLogging(true, id);
  for (std::size_t t = 0; t < kThreads; ++t) {
    std::thread([&completed, t] {
      for (int number = 0;; ++number) {
        Print(MessageOf(t, number));
        completed[t] = number + 1;
      }
    }).detach();
  }
  ::pause();
}

// Every line but a cut first one is whole and right, each thread's numbers follow one another, and its last
// line is the last completed one, or the one after it, whose storing ended just before its thread did.
void ExpectWholeLines(const ringtool::Reading& reading, const Completed& completed) {
  const bool lacksFront = static_cast<std::int64_t>(reading.contents.size()) < reading.state.bytesStored;
  const std::string position = "|x:1:f| ";
  std::array<int, kThreads> next = {};  // 0 as well where all lines of a thread are overwritten
  std::size_t begin = reading.frontCut ? reading.contents.find('\n') + 1 : 0;
  for (std::size_t end = 0; begin < reading.contents.size(); begin = end + 1) {
    end = reading.contents.find('\n', begin);
    const std::string line = reading.contents.substr(begin, end - begin);
    std::size_t t = kThreads;
    int number = 0;
    std::sscanf(line.c_str(), "%*15[0-9:.] INFO  |%*u|x:1:f| thread %zu line %d", &t, &number);
    ASSERT_LT(t, kThreads) << line;
    ASSERT_EQ(line.substr(line.find(position) + position.size()), MessageOf(t, number));
    ASSERT_TRUE(number == next[t] || (lacksFront && next[t] == 0)) << line << " after " << next[t];
    next[t] = number + 1;
  }
  for (std::size_t t = 0; t < kThreads; ++t) {
    const int ahead = next[t] - completed[t];
    EXPECT_TRUE(ahead == 0 || ahead == 1 || (lacksFront && next[t] == 0)) << ahead;
  }
}

TEST(LogCrash, AKilledProcessLeavesEveryCompletedLineOrSaysThatOneWasBeingStored) {
  const TemporaryDirectory root;
  void* shared =
      ::mmap(nullptr, sizeof(Completed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  std::mt19937 random(std::random_device{}());
  int whole = 0;
  for (int i = 0; i < kKills && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    const TestRing ring;
    auto& completed = *new (shared) Completed{};
    const pid_t child = ::fork();
    if (child == 0) LogUntilKilled(root.path(), ring.id, completed);
    for (int wait = 0; wait < 20000 && completed[3] == 0; ++wait) ::usleep(500);
    ::usleep(static_cast<useconds_t>(random() % (i % 8 == 0 ? 30000 : 3000)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    const ringtool::Reading reading = ring.Read();
    if (reading.verdict == ringtool::HeaderVerdict::kBeingChanged) continue;
    ASSERT_EQ(reading.verdict, ringtool::HeaderVerdict::kConsistent);
    ExpectWholeLines(reading, completed);
    ++whole;
  }
  std::printf("%d kills, %d rings whole\n", kKills, whole);
  EXPECT_GT(whole, kKills / 10);
}

}  // namespace
