// Lines, levels and switches, first use, faults of standard output, threads and fork.

#include <sys/syscall.h>
#include <sys/uio.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <map>
#include <new>
#include <thread>

#include "LogFaults.h"
#include "LogTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"
#include "Utl_Warn_internal.h"

bool faults::noMemory = false;
bool faults::noSignalFlag = false;
bool faults::slowDisk = false;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return faults::noMemory ? nullptr : ::operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return faults::noMemory ? nullptr : ::operator new[](size);
}

ssize_t pwritev2(int fd, const iovec* iodev, int count, off_t offset, int flags) {
  errno = EOPNOTSUPP;
  return faults::noSignalFlag ? -1 : syscall(SYS_pwritev2, fd, iodev, count, offset, 0, flags);
}

int fsync(int fd) {
  return faults::slowDisk ? usleep(5000) : static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

using namespace logtest;

const std::string kNote =
    "!!WRN!!|NOTE: Please call LOGInit() before other any log functions to avoid race conditions!";

TEST(LogLine, HeaderShowsLevelThreadAndPosition) {
  const struct {
    UTL_LOGLevel level;
    const char* file;
    int line;
    const char *function, *message;
    std::string expected;  // without time and thread
  } rows[] = {
      {UTL_LOG_TRACE, "src/Reader.cpp", 120, "Poll", "m", " TRACE |Reader.cpp:120:Poll| m\n"},
      {UTL_LOG_DBG, "Reader", 1, "f", "m", " DBG   |Reader:1:f| m\n"},
      {UTL_LOG_INFO, "dirs/b\\c.x", 0, "f", "m", " INFO  |c.x:0:f| m\n"},
      {UTL_LOG_WRN, "a\\b/c.x", -1, "f", "m", "!!WRN!!|c.x:-1:f| m\n"},
      {UTL_LOG_ERR, nullptr, INT_MAX, nullptr, "m", "##ERR##|*:2147483647:<n/a>| m\n"},
      {UTL_LOG_CRITICAL, "dir/", INT_MIN, "", "", "##CRITICAL##|:-2147483648:| \n"},
      {UTL_LOG_ALWAYS, "", 7, "f", nullptr, " ALWAYS|:7:f| \n"},
      {UTL_LOG_INFO, "x", 7, "f", "ends\n", " INFO  |x:7:f| ends\n"},
      {UTL_LOG_INFO, "x", 7, "f", "in\nner\n\n", " INFO  |x:7:f| in\nner\n\n"},
  };
  const auto result = RunInChild([&rows] {
    UTL_LOGInit("t", nullptr);
    for (const auto& row : rows) {
      UTL_LOGSetLevel(row.level, 1);
      const char* format = row.message == nullptr ? nullptr : "%s";
      UTL_LOGPrint(row.level, row.file, row.line, row.function, format, row.message);
    }
    dprintf(2, "|%d", getpid());
  });
  std::string expected;
  for (const auto& row : rows)
    expected += std::string(row.expected).insert(row.expected.find('|'), result.err);
  const std::regex time(R"(\d\d:\d\d:\d\d\.\d{6})");
  EXPECT_EQ(std::regex_replace(result.out, time, ""), expected);
}

// Plain conversions are formatted without printf and must not differ from it; the others go to it.
template <typename... Arguments>
void PrintBoth(const char* format, Arguments... arguments) {
  UTL_LOGPrint(UTL_LOG_INFO, "x", 1, "f", format, arguments...);
  dprintf(2, format, arguments...);
}

TEST(LogLine, MessageIsWhatPrintfMakesOfIt) {
  const auto result = RunInChild([] {
    UTL_LOGInit("t", nullptr);
    PrintBoth("%d, %i; %u and %x\n", INT_MIN, -7, UINT_MAX, 0xbeefU);
    PrintBoth("%ld%lu%lx %lld %llu\n", LONG_MIN, ULONG_MAX, 255UL, LLONG_MAX, ULLONG_MAX);
    PrintBoth("%zu %zd %s|%s\n", SIZE_MAX, ssize_t{-1}, "", static_cast<const char*>(nullptr));
    PrintBoth("%d%% of %5d and %-4s|%.2f%s%c\n", 1, 2, "x", 2.5, "before", 'c');
    PrintBoth("%.*s %*d %hhd %02x %ls\n", 2, "abc", 6, 42, 300, 10, L"wide");
  });
  std::string messages;
  for (const Line& line : ParseLines(result.out)) messages += line.message + "\n";
  EXPECT_EQ(messages, result.err);
}

TEST(LogLine, LengthHasNoLimitButMemory) {
  const struct {
    std::size_t line;      // wanted length, newline aside
    const char* format;    // one that goes to printf, one that does not
    std::size_t function;  // length of the function's name, which can fill a header
    bool noMemory;
  } rows[] = {{255, "%s", 1, true},   {256, "%s", 1, true},   {255, "%-5s", 1, true},
              {256, "%-5s", 1, true}, {256, "%s", 1, false},  {256, "%-5s", 1, false},
              {9000, "%s", 1, false}, {300, "%s", 300, true}, {900, "%-5s", 300, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.line) + row.format);
    const auto result = RunInChild([&row] {
      UTL_LOGInit("t", nullptr);
      const std::string function(row.function, 'f');
      const std::string header = " INFO  |" + std::to_string(getpid()) + "|x:1:" + function + "| ";
      const std::string text(row.line - std::min(row.line, header.size() + 15), 'm');
      dprintf(2, "%s%s", header.c_str(), text.c_str());
      faults::noMemory = row.noMemory;
      UTL_LOGPrint(UTL_LOG_INFO, "x", 1, function.c_str(), row.format, text.c_str());
    });
    const bool isCut = row.noMemory && row.line > 255;
    EXPECT_EQ(result.out.substr(15), isCut ? result.err.substr(0, 252 - 15) + "...\n" : result.err + "\n");
  }
}

TEST(LogCore, FirstUseLevelsAndSwitches) {
  const struct {
    const char* name;
    void (*body)();
    Texts expected;
  } rows[] = {
      {"a level that is off initialises nothing, nor do these",
       [] {
         Print("d", UTL_LOG_DBG);
         UTL_LOGSetMax(1);
         UTL_LOGStartSpecialLog("s", 1);
         UTL_LOGStopSpecialLogs();
         EXPECT_FALSE(utl_logInit);
         UTL_LOGInit(std::string(100, 'n').c_str(), std::string(600, 'r').c_str());
         EXPECT_EQ(utl_logProcessName, std::string(63, 'n'));
         EXPECT_EQ(utl_rootDir, std::string(517, 'r'));
       },
       {}},
      {"what logs first initialises, and that counts",
       [] {
         Print("first");
         UTL_LOGInit("name", "/nowhere");
         EXPECT_STREQ(utl_logProcessName, "null");
         EXPECT_STREQ(utl_rootDir, "");
       },
       {kNote, " INFO  |first", "!!WRN!!|LOGInit() was called more than once; ignoring new values"}},
      {"so does setting a level, even none", [] { UTL_LOGSetLevel(UTL_LOGLevel(7), 1); }, {kNote}},
      {"levels are switches, and there are seven",
       [] {
         UTL_LOGInit("t", nullptr);
         UTL_LOGSetLevel(UTL_LOG_DBG, 200);
         UTL_LOGSetLevel(UTL_LOG_INFO, 0);
         for (int level : {-1, 7, 8, INT_MAX, INT_MIN}) {
           UTL_LOGSetLevel(UTL_LOGLevel(level), 1);
           Print("none", UTL_LOGLevel(level));
         }
         Print("d", UTL_LOG_DBG);
         Print("i", UTL_LOG_INFO);
         UTL_LOGSetWriteToStdout(false);
         Print("off", UTL_LOG_DBG);
       },
       {" DBG   |d"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto result = RunInChild([&row] {
      errno = 77;
      row.body();
      EXPECT_EQ(errno, 77);  // whatever went on inside
    });
    ExpectCleanExit(result);
    EXPECT_EQ(Messages(result.out), row.expected);
  }
}

// Logs as early and as late as the language lets anything run, in a process that asks for it.
struct EarlyAndLate {
  EarlyAndLate() { Say("early"); }
  ~EarlyAndLate() { Say("late"); }
  static void Say(const char* when) {
    if (std::getenv("LOG_EARLY_AND_LATE") != nullptr) Print(when);
  }
};
__attribute__((init_priority(101))) EarlyAndLate earlyAndLate;

TEST(LogCore, EarlyAndLateUse) {
  const auto result = RunInChild([] {
    setenv("LOG_EARLY_AND_LATE", "1", 1);
    execl("/proc/self/exe", "self", "--gtest_filter=none", static_cast<char*>(nullptr));
  });
  const Texts messages = Messages(result.out);
  ASSERT_GE(messages.size(), 3U);
  EXPECT_EQ(Texts(messages.begin(), messages.begin() + 2), (Texts{kNote, " INFO  |early"}));
  EXPECT_EQ(messages.back(), " INFO  |late");
}

class LogPipe : public AppTest {};

TEST_F(LogPipe, ReaderOfStandardOutputIsGone) {
  for (const int row : {0, 1, 2, 3}) {
    const bool noFlag = row > 1;
    const int isPending = row % 2;
    SCOPED_TRACE(row);
    Run([noFlag, isPending] {
      std::array<int, 2> ends{};
      ASSERT_EQ(pipe(ends.data()), 0);
      close(ends[0]);
      dup2(ends[1], 1);
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, SIGPIPE);
      if (isPending == 1) {
        sigprocmask(SIG_BLOCK, &set, nullptr);
        raise(SIGPIPE);
      }
      faults::noSignalFlag = noFlag;
      Print("nobody reads this");
      {
        const pluginsdk::log::Inside inside;
        UTLWarn(3, "x", 1, "f", "nor this");
      }
      sigpending(&set);  // all as before
      EXPECT_EQ(sigismember(&set, SIGPIPE), isPending);
      sigprocmask(SIG_BLOCK, nullptr, &set);
      EXPECT_EQ(sigismember(&set, SIGPIPE), isPending);
    });
  }
}

class LogThreads : public AppTest {};

void RunInThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (auto& thread : threads) thread.join();
}

TEST_F(LogThreads, FirstUseAtTheSameMoment) {
  std::multiset<std::string> expected = {kNote};
  for (int i = 0; i < 8; ++i) expected.insert(" INFO  |m");
  for (int round = 0; round < 5; ++round) {
    const auto result = RunInChild([] {
      std::atomic<int> ready{0};
      RunInThreads(8, [&ready](int) {
        ++ready;
        while (ready < 8) std::this_thread::yield();
        Print("m");
      });
    });
    ExpectCleanExit(result);
    const Texts messages = Messages(result.out);
    EXPECT_EQ(std::multiset(messages.begin(), messages.end()), expected);
  }
}

// How often each message of the function "Number" is there. A torn line is a line without header.
std::map<std::string, int> Numbered(const std::string& text) {
  std::map<std::string, int> counts;
  for (const auto& line : ParseLines(text)) {
    EXPECT_TRUE(line.valid) << line.message;
    if (line.function == "Number") ++counts[line.message];
  }
  return counts;
}

// Printers whose holds overlap all the time, since each waits for the disk, leave no moment without one.
TEST_F(LogThreads, AChangeDoesNotWaitForEver) {
  Run([] {
    alarm(6);
    faults::slowDisk = true;
    UTL_LOGSetWriteToStdout(false);
    std::atomic<bool> stop{false};
    std::atomic<int> lines{0};
    RunInThreads(8, [&](int thread) {
      for (; thread > 0 && !stop; ++lines) Print("m");
      while (thread == 0 && lines < 50) std::this_thread::yield();
      for (int i = 0; thread == 0 && i < 20; ++i) UTL_LOGSetLevel(UTL_LOG_DBG, 0);
      stop = stop || thread == 0;
    });
  });
}

TEST_F(LogThreads, EveryLineOnceWhileEverythingChanges) {
  constexpr int kLines = 500;  // of a thread; all together fit into the ring
  const auto result = Run([] {
    UTL_LOGSetMax(1000 * kLogSwitchSize);
    Print("opens a file, without which the ring stores nothing");
    std::atomic<int> left{4};
    RunInThreads(5, [&left](int thread) {
      for (int n = 0; thread > 0 && n < kLines; ++n)
        UTL_LOGPrint(UTL_LOG_INFO, "x", 1, "Number", "%d.%d%*s", thread, n, n % 2 * 300, "");
      left -= thread > 0 ? 1 : 0;
      for (int n = 0; thread == 0 && left > 0; ++n) {
        UTL_LOGSetLevel(UTL_LOG_DBG, n % 2 == 0);
        UTL_LOGStartSpecialLog(n % 2 == 0 ? "a" : "b", 1000);
        UTL_LOGSetEnableInMemoryLogging(n % 4 < 2, getpid());
        UTL_LOGFlushInMemoryLogs();
        if (n % 8 == 0) UTL_LOGStopSpecialLogs();
        const pluginsdk::log::ExclusiveHold hold;
        if (n % 16 == 0) utl_logDay = 0;  // the next line switches
      }
    });
    UTL_LOGSetEnableInMemoryLogging(false, 0);
  });
  for (const auto& counts : {Numbered(result.out), Numbered(ProcessLog())}) {
    EXPECT_EQ(counts.size(), 4U * kLines);
    for (const auto& [message, count] : counts) EXPECT_EQ(count, 1) << message;
  }
}

TEST_F(LogThreads, ForkedChildLogsToo) {
  constexpr int kChildren = 20;
  Run([] {
    UTL_LOGSetMax(10 * kLogSwitchSize);  // keeps all when a full ring is flushed
    Print("opens a file");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, getpid()), 0);  // off in the children
    std::atomic<bool> stop{false};
    RunInThreads(4, [&stop](int thread) {
      for (; thread > 0 && !stop; UTL_LOGSetLevel(UTL_LOG_DBG, 0)) Print("parent");
      for (int i = 0; thread == 0 && i < kChildren; ++i) {
        Print("parent");
        const pid_t child = fork();
        if (child == 0) {
          alarm(20);
          UTL_LOGPrint(UTL_LOG_INFO, "x", getpid(), "child", "m");
          UTL_LOGSetLevel(UTL_LOG_DBG, 1);
          _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
      }
      stop = stop || thread == 0;
    });
    UTL_LOGSetEnableInMemoryLogging(false, 0);
  });
  int fromChildren = 0;
  for (const auto& line : ParseLines(ProcessLog())) {
    if (line.function != "child") continue;
    ++fromChildren;
    EXPECT_EQ(line.thread, line.number);  // its own id, not the one it inherited
  }
  EXPECT_EQ(fromChildren, kChildren);
}

}  // namespace
