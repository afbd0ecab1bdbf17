// What one line costs, in system calls and allocations: the part of its speed that no machine changes.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "CostSupport.h"
#include "Utl_Log.h"
#include "util/LogTestSupport.h"

namespace {

using Calls = std::vector<std::string>;

// A line of at most 255 characters, header included, needs no heap.
void PrintLine(UTL_LOGLevel level, std::size_t length) {
  static const std::string text(1000, 'x');
  UTL_LOGPrint(level, "tests/Counts", 1, "PrintLine", "%d:%.*s", 42, static_cast<int>(length), text.c_str());
}
constexpr std::size_t kShort = 100;
constexpr std::size_t kLong = 300;

struct Case {
  const char* name;
  bool hasFile;
  void (*configure)();
  UTL_LOGLevel level;
  std::size_t length;
  Calls calls;
  std::size_t allocations;
};

const int ringId = static_cast<int>(getpid());  // the parent's in the children too, which removes the segment

void Nothing() {}
void FileOnly() {
  UTL_LOGSetWriteToStdout(false);
}
void Ring() {
  FileOnly();
  PrintLine(UTL_LOG_INFO, kShort);  // the ring stores lines only while there is a file
  ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, ringId), 0);
}
void SpecialLog() {
  FileOnly();
  UTL_LOGStartSpecialLog("special", 1 << 20);
}

TEST(LogCounts, OneLine) {
  const Case cases[] = {
      {"level off", true, Nothing, UTL_LOG_DBG, kShort, {}, 0},
      {"standard output", false, Nothing, UTL_LOG_INFO, kShort, {"write"}, 0},
      {"standard output, long line", false, Nothing, UTL_LOG_INFO, kLong, {"write"}, 1},
      {"file", true, FileOnly, UTL_LOG_INFO, kShort, {"fstat", "write", "fsync"}, 0},
      {"ring", true, Ring, UTL_LOG_INFO, kShort, {}, 0},
      {"ring, long line", true, Ring, UTL_LOG_INFO, kLong, {}, 1},
      {"file and special log",
       true,
       SpecialLog,
       UTL_LOG_INFO,
       kShort,
       {"fstat", "fstat", "write", "fsync", "write", "fsync"},
       0},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    const logtest::TemporaryDirectory root;
    const auto prepare = [&] {
      UTL_LOGInit("counted", row.hasFile ? root.c_str() : nullptr);
      row.configure();
      PrintLine(UTL_LOG_INFO, kShort);  // opens the file, learns the thread's id and converts the second
    };
    const auto cost = costtest::CostOf(prepare, [&] { PrintLine(row.level, row.length); });
    shm_unlink(("/LOG_Shm_" + std::to_string(ringId)).c_str());
    if (!cost) GTEST_SKIP() << "processes must not be traced here";
    EXPECT_EQ(cost->calls, row.calls);
    EXPECT_EQ(cost->allocations, row.allocations);
  }
}

}  // namespace
