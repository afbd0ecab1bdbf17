// The logging facility while the system around it fails: it never crashes or hangs where it does not have to
// wait, and the next line is written once the fault is gone. Each case runs in a process of its own.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "FaultEngine.h"
#include "Utl_Log.h"
#include "util/LogTestSupport.h"

namespace {

using faults::kOdd;
using faults::Window;
using logtest::FilesIn;
using logtest::ReadFile;
namespace fs = std::filesystem;

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kNoon = 1768478400;  // of 15 January 2026

void Log(const std::string& text) {
  UTL_LOGPrint(UTL_LOG_INFO, "faults", 1, "F", "%s", text.c_str());
}

int Count(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

// Each destination from the beginning of a day on, and turning in-memory logging off on the way to its end.
void UseEverything(const std::string& text, int ringId) {
  const std::string toFile = "file " + text + std::string(300, '.');
  const std::string toRing = "ring " + text + ";";
  const Window window;
  errno = 77;
  faults::clock += kDay;
  UTL_LOGStartSpecialLog("special", 1 << 20);
  Log(toFile);
  UTL_LOGSetEnableInMemoryLogging(true, ringId);
  Log(toRing);
  UTL_LOGFlushInMemoryLogs();
  UTL_LOGSetEnableInMemoryLogging(false, 0);
  UTL_LOGStopSpecialLogs();
  EXPECT_EQ(errno, 77);
}

void ExpectWritten(const logtest::TemporaryDirectory& root, const std::string& text) {
  const logtest::Texts files = FilesIn(root.series());
  ASSERT_EQ(files.size(), 1U);  // everything older is deleted
  EXPECT_EQ(Count(ReadFile(files[0]), "file " + text + "."), 1);
  EXPECT_EQ(Count(ReadFile(files[0]), "ring " + text + ";"), 1);
  EXPECT_EQ(Count(ReadFile(root.series() + "/special_logs/special"), "file " + text + "."), 1);
}

// Runs `scenario` in a process that a signal ends when it hangs, and gives what it wrote to standard output.
std::string InChild(
    const std::function<void(const logtest::TemporaryDirectory& root, int ringId)>& scenario) {
  const logtest::TemporaryDirectory root;
  const int ringId = getpid();
  const auto result = logtest::RunInChild([&] {
    alarm(50);
    setenv("TZ", "UTC", 1);
    faults::clock = kNoon;
    UTL_LOGInit("app", root.c_str());
    UTL_LOGSetMax(1);
    scenario(root, ringId);
  });
  shm_unlink(("/LOG_Shm_" + std::to_string(ringId)).c_str());
  logtest::ExpectCleanExit(result);
  return result.out;
}

// All that the facility asks of the system and that can fail. The first ones come most often.
constexpr const char* kCalls[] = {"malloc",     "fstat",           "write",    "pwritev2", "fsync",
                                  "open",       "fcntl",           "lstat",    "mkdir",    "unlink",
                                  "opendir",    "readdir",         "closedir", "close",    "shm_open",
                                  "shm_unlink", "posix_fallocate", "mmap",     "munmap"};

TEST(SystemFaults, EachSystemCallFailsWithEachErrorAndAtEachPlace) {
  constexpr int kUnknown = 200;
  // The last ones make the facility do without pwritev2.
  const int errors[] = {kOdd,  EINTR,  EIO,   ENOSPC, ENOMEM, EACCES, EMFILE,   EAGAIN, ENOENT, EEXIST, EROFS,
                        EFBIG, EDQUOT, ENXIO, EISDIR, EBADF,  EPIPE,  kUnknown, ENOSYS, EINVAL, EPERM};
  for (const std::string call : kCalls) {
    SCOPED_TRACE(call);
    const std::string out = InChild([&](const auto& root, int ringId) {
      int count = 0;
      for (const int error : errors) {
        const bool inTurn = error == kOdd || error == kUnknown;
        for (int nth = 0, reached = nth; nth <= reached; nth = inTurn ? nth + 1 : reached + 1) {
          faults::current = {call.c_str(), error, nth};
          UseEverything("in vain", ringId);
          reached = faults::current.seen;
          faults::current = {};
          const std::string name = std::to_string(error) + " at " + std::to_string(nth);
          SCOPED_TRACE(name);
          UseEverything(name, ringId);
          ExpectWritten(root, name);
          ++count;
        }
      }
      Log("faults: " + std::to_string(count));
    });
    const bool isTranslated = call != "fcntl" && call != "fsync";
    EXPECT_EQ(out.find("unknown error code 200 ") != std::string::npos, isTranslated);
    EXPECT_EQ(Count(out, " at "), 2 * std::stoi(out.substr(out.rfind("| faults: ") + 10)));
  }
}

TEST(SystemFaults, ARingThatCannotBeMadeLeavesNothing) {
  for (const char* call : {"shm_open", "posix_fallocate", "mmap"}) {
    InChild([call](const auto&, int ringId) {
      faults::current = {call, ENOSPC};
      const Window window;
      EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, ringId), -3) << call;
      EXPECT_FALSE(fs::exists("/dev/shm/LOG_Shm_" + std::to_string(ringId))) << call;
    });
  }
}

// The part of a line's speed that no machine changes: the calls above, each as often as one line makes it.
TEST(SystemFaults, ALineMakesNoCallTooMany) {
  enum Way { kFile, kStdout, kRing, kSpecial };
  constexpr int kShort = 100;  // a line of at most 255 characters needs no heap
  constexpr int kLong = 300;
  const struct {
    Way way;
    UTL_LOGLevel level;
    int length;
    std::string calls;
  } rows[] = {{kFile, UTL_LOG_DBG, kShort, ""},  // the level is off
              {kFile, UTL_LOG_INFO, kShort, "fstat write fsync "},
              {kStdout, UTL_LOG_INFO, kShort, "fstat write "},  // the file that is open is looked at
              {kStdout, UTL_LOG_INFO, kLong, "malloc fstat write "},
              {kRing, UTL_LOG_INFO, kShort, ""},
              {kRing, UTL_LOG_INFO, kLong, "malloc "},
              {kSpecial, UTL_LOG_INFO, kShort, "fstat fstat write write fsync fsync "}};
  for (const auto& row : rows) {
    InChild([&row](const auto&, int ringId) {
      const auto print = [&row] { UTL_LOGPrint(row.level, "x/y", 1, "F", "%d:%*s", 42, row.length, "x"); };
      faults::current = {"pwritev2", ENOSYS};  // which some kernels do not have
      {
        const Window window;
        Log("opens the file, and has standard output looked at, which is not due again soon");
      }
      UTL_LOGSetWriteToStdout(row.way == kStdout);
      UTL_LOGSetWriteToFile(row.way != kStdout);
      if (row.way == kRing) UTL_LOGSetEnableInMemoryLogging(true, ringId);
      if (row.way == kSpecial) UTL_LOGStartSpecialLog("special", 1 << 20);
      print();
      std::string calls;
      for (const char* call : kCalls) {
        for (int count = faults::CountOf(call, print); count > 0; --count) calls.append(call).append(" ");
      }
      EXPECT_EQ(calls, row.calls);
    });
  }
}

void Limit(__rlimit_resource resource, rlim_t value) {
  rlimit limit = {};
  getrlimit(resource, &limit);
  limit.rlim_cur = value;
  ASSERT_EQ(setrlimit(resource, &limit), 0);
}

const char* const kCannotMount = "no file system can be mounted here";

// A file system of this process alone; needs a privilege.
void Mount(const std::string& at, unsigned long flags) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", at.c_str(), "tmpfs", flags, "size=64k") != 0) {
    std::puts(kCannotMount);
    std::exit(0);
  }
}

TEST(SystemFaults, EnvironmentThatFails) {
  using Step = void (*)(const std::string& root);
  const Step nothing = [](const std::string&) {};
  const struct {
    const char* name;
    Step before, begin, end;
    bool keepsFile;  // whether the file that was open goes on after the fault
  } rows[] = {
      {"limit on file sizes", nothing, [](const std::string&) { Limit(RLIMIT_FSIZE, 4096); },
       [](const std::string&) { Limit(RLIMIT_FSIZE, RLIM_INFINITY); }, true},
      {"no descriptors", nothing, [](const std::string&) { Limit(RLIMIT_NOFILE, 0); },
       [](const std::string&) { Limit(RLIMIT_NOFILE, 256); }, true},
      {"root deleted", nothing, [](const std::string& root) { fs::remove_all(root); }, nothing, false},
      {"file in the place of the root", nothing,
       [](const std::string& root) { fs::remove_all(root), std::ofstream(root) << "x"; },
       [](const std::string& root) { fs::remove(root); }, false},
      {"log file deleted", nothing, [](const std::string& root) { fs::remove_all(root + "/logs/app"); },
       nothing, false},
      {"full file system", [](const std::string& root) { Mount(root, 0); },
       [](const std::string& root) { std::ofstream(root + "/filler") << std::string(1 << 20, 'x'); },
       [](const std::string& root) { fs::remove(root + "/filler"); }, true},
      // Over the root, because a file system with files that are being written cannot be made read-only.
      {"read-only file system", [](const std::string& root) { Mount(root, 0); },
       [](const std::string& root) { Mount(root, MS_RDONLY); },
       [](const std::string& root) { umount(root.c_str()); }, true},
  };
  std::string skipped;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string out = InChild([&](const auto& root, int ringId) {
      row.before(root.path());
      Log("before");
      row.begin(root.path());
      for (int i = 0; i < 20; ++i) Log("during" + std::string(300, '.'));
      row.end(root.path());
      Log("next line");
      const logtest::Texts files = FilesIn(root.series());
      EXPECT_EQ(files.empty() ? 0 : Count(ReadFile(files[0]), "| next line"), row.keepsFile);
      row.begin(root.path());
      UseEverything("in vain", ringId);
      row.end(root.path());
      UseEverything("afterwards", ringId);
      ExpectWritten(root, "afterwards");
    });
    if (Count(out, kCannotMount) == 1) skipped += std::string(row.name) + ", ";
    EXPECT_TRUE(Count(out, "| during") == 20 || !skipped.empty());
  }
  if (!skipped.empty()) GTEST_SKIP() << skipped << kCannotMount;
}

// A process that was started without standard streams must not give their numbers to files of its log.
TEST(SystemFaults, StandardStreamsThatAreClosed) {
  InChild([](const auto& root, int ringId) {
    for (const int fd : {0, 1, 2}) close(fd);
    UTL_LOGStartSpecialLog("other", 1000);
    UTL_LOGSetEnableInMemoryLogging(true, ringId);
    UTL_LOGFlushInMemoryLogs();  // opens the file
    for (const int fd : {0, 1, 2}) EXPECT_EQ(fcntl(fd, F_GETFD), -1) << fd;
    UTL_LOGSetEnableInMemoryLogging(false, 0);
    UseEverything("after all", ringId);
    ExpectWritten(root, "after all");
  });
}

TEST(SystemFaults, FullPipeInThePlaceOfStandardOutput) {
  for (const bool waits : {false, true}) {
    InChild([&](const auto& root, int ringId) {
      std::array<int, 2> ends{};
      ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
      while (write(ends[1], "x", 1) == 1) continue;
      dup2(ends[1], 1);
      close(ends[1]);
      const pid_t reader = waits ? fork() : -1;
      if (reader == 0) {  // begins when the writer waits already
        usleep(100000);
        fcntl(ends[0], F_SETFL, 0);
        std::string text;
        for (char byte = 0; text.find("ring whole;") == std::string::npos; text += byte)
          if (read(ends[0], &byte, 1) != 1) _exit(1);
        _exit(Count(text, "| file whole.") == 1 ? 0 : 1);
      }
      if (waits) fcntl(1, F_SETFL, 0);
      UseEverything("whole", ringId);
      int status = 0;
      EXPECT_EQ(waitpid(reader, &status, 0), reader);
      EXPECT_EQ(status, 0);
      ExpectWritten(root, "whole");
    });
  }
}

TEST(SystemFaults, TwoProcessesOfOneNameInOneDirectory) {
  InChild([](const auto& root, int) {
    faults::clock = 0;
    UTL_LOGSetMax(0);
    const pid_t other = fork();
    for (int i = 0; i < 100; ++i) Log(other == 0 ? "child;" : "parent;");
    if (other == 0) _exit(0);
    waitpid(other, nullptr, 0);
    for (const std::string& file : FilesIn(root.series())) {
      const std::string text = ReadFile(file);
      EXPECT_EQ(Count(text, "child;") + Count(text, "parent;"), 100) << file;
    }
  });
}

TEST(SystemFaults, ClockSetBackAndEntriesWithoutType) {
  InChild([](const auto& root, int) {
    for (const int days : {0, -1, 31, 32}) {
      if (days == 32) faults::current = {"readdir", kOdd};
      const std::string text = "after " + std::to_string(days);
      faults::clock = kNoon + days * kDay;
      {
        const Window window;
        Log(text);
      }
      const logtest::Texts files = FilesIn(root.series());
      ASSERT_EQ(files.size(), 1U);  // the file just opened, whatever its name sorts like
      EXPECT_EQ(Count(ReadFile(files[0]), text), 1);
    }
  });
}

TEST(SystemFaults, NoDescriptorIsInherited) {
  InChild([](const auto&, int ringId) {
    UTL_LOGStartSpecialLog("special", 1000);
    Log("opens the file");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, ringId), 0);
    std::FILE* const listing = popen("exec ls -l /proc/self/fd", "r");
    std::string text(10000, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), listing));
    pclose(listing);
    EXPECT_GE(Count(text, " -> "), 3);
    EXPECT_EQ(Count(text, "logs/app") + Count(text, "LOG_Shm"), 0) << text;
  });
}

}  // namespace
