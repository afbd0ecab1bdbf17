// What one line costs, in system calls and allocations: the part of its speed that no machine changes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>

#include "CostSupport.h"
#include "Utl_Log.h"
#include "util/LogTestSupport.h"

namespace {

/// Empty for ways to read the clock and to guard against SIGPIPE, which depend on the kernel, and for the
/// end.
std::string Name(std::uint64_t call) {
  static const std::map<std::uint64_t, const char*> names = {
      {SYS_write, "write "},      {SYS_pwritev2, "write "}, {SYS_fsync, "fsync "},   {SYS_fstat, "fstat "},
      {SYS_newfstatat, "fstat "}, {SYS_gettimeofday, ""},   {SYS_clock_gettime, ""}, {SYS_rt_sigprocmask, ""},
      {SYS_rt_sigpending, ""},    {SYS_exit_group, ""}};
  const auto found = names.find(call);
  return found == names.end() ? "call " + std::to_string(call) + " " : found->second;
}

/// The system calls of `operation` in order, then its allocations, in a child process that has run `prepare`
/// before. Empty where processes must not be traced.
std::string Cost(const std::function<void()>& prepare, const std::function<void()>& operation) {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    prepare();
    raise(SIGSTOP);
    _exit(static_cast<int>(costtest::AllocationsOf(operation)));
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) return "";
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  std::string calls;
  while (WIFSTOPPED(status)) {
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) calls += Name(info.entry.nr);
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
  }
  return calls + std::to_string(WEXITSTATUS(status));
}

const int ringId = static_cast<int>(getpid());  // the parent's in the children too, which removes the segment

// A line of at most 255 characters, header included, needs no heap.
constexpr int kShort = 100;
constexpr int kLong = 300;

void PrintLine(UTL_LOGLevel level, int length) {
  UTL_LOGPrint(level, "tests/Counts", 1, "PrintLine", "%d:%*s", 42, length, "x");
}

enum Way { kStdout, kFile, kRing, kSpecial };

void Prepare(Way way, const char* root) {
  UTL_LOGInit("counted", way == kStdout ? nullptr : root);
  UTL_LOGSetWriteToStdout(way == kStdout);
  PrintLine(UTL_LOG_INFO, kShort);  // opens the file, without which the ring stores nothing
  if (way == kRing) UTL_LOGSetEnableInMemoryLogging(true, ringId);
  if (way == kSpecial) UTL_LOGStartSpecialLog("special", 1 << 20);
  PrintLine(UTL_LOG_INFO, kShort);
}

TEST(LogCounts, OneLine) {
  const struct {
    const char* name;
    Way way;
    UTL_LOGLevel level;
    int length;
    const char* cost;
  } rows[] = {
      {"level off", kFile, UTL_LOG_DBG, kShort, "0"},
      {"standard output", kStdout, UTL_LOG_INFO, kShort, "write 0"},
      {"standard output, long line", kStdout, UTL_LOG_INFO, kLong, "write 1"},
      {"file", kFile, UTL_LOG_INFO, kShort, "fstat write fsync 0"},
      {"ring", kRing, UTL_LOG_INFO, kShort, "0"},
      {"ring, long line", kRing, UTL_LOG_INFO, kLong, "1"},
      {"special log", kSpecial, UTL_LOG_INFO, kShort, "fstat fstat write fsync write fsync 0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const logtest::TemporaryDirectory root;
    const std::string cost =
        Cost([&] { Prepare(row.way, root.c_str()); }, [&] { PrintLine(row.level, row.length); });
    shm_unlink(("/LOG_Shm_" + std::to_string(ringId)).c_str());
    if (cost.empty()) GTEST_SKIP() << "processes must not be traced here";
    EXPECT_EQ(cost, row.cost);
  }
}

}  // namespace
