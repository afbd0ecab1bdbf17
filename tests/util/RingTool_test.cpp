// The tool that reads in-memory logs: what it shows of a segment, and how it ends.

#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

FILE* StartTool(const std::string& arguments) {
  return ::popen((std::string(PLUGINSDK_TOOL) + " ring " + arguments + " 2>&1").c_str(), "r");
}

// What it prints up to the end of a line, or to its own end.
std::string Next(FILE* tool, int end = '\n') {
  std::string out;
  for (int c = 0; c != end && (c = std::fgetc(tool)) != EOF;) out += static_cast<char>(c);
  return out;
}

std::pair<std::string, int> RunTool(const std::string& arguments) {
  FILE* const tool = StartTool(arguments);
  const std::string out = Next(tool, EOF);
  return {out, WEXITSTATUS(::pclose(tool))};
}

TEST(RingTool, ShowsASavedSegmentAndChangesNothing) {
  std::string noMagic = logtest::SegmentBytes({164, 168, 0, 4}, "abc\n");
  noMagic.replace(4, 16, 16, '\0');
  const std::string newest = std::string(1000, 'x') + "\n";
  const std::string old = "ut\n" + std::string(523119, 'y') + "\n";
  const struct {
    std::string bytes;
    std::string options;
    int status;
    std::string output;
  } rows[] = {
      {logtest::SegmentBytes({164, 168, 0, 4}, "abc\nstale"), "", 0,
       "consistent, 4 bytes stored since the last flush\nabc\n"},
      {logtest::SegmentBytes({1165, 1165, 1, 525125}, newest + old), "", 0,
       "consistent, 525125 bytes stored since the last flush, the oldest 1001 overwritten\n[cut] " + old +
           newest},
      {noMagic, "", 1, "not consistent: a line was being stored or the ring flushed\n"},
      {noMagic, "--salvage ", 1, "not consistent: a line was being stored or the ring flushed\n[cut] abc\n"},
      {logtest::SegmentBytes({164, 999999, 0, 4}, "abc\n"), "", 1,
       "not consistent: its positions and its count contradict each other\n"},
      {std::string(524288, 'a'), "", 1, "not consistent: it does not carry the magic of an in-memory log\n"},
  };
  const logtest::TemporaryDirectory directory;
  const std::string path = directory.path() + "/saved";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.options + row.output);
    std::ofstream(path, std::ios::binary) << row.bytes;
    const auto [out, status] = RunTool(row.options + "--file " + path);
    EXPECT_EQ(status, row.status);
    EXPECT_EQ(out, path + ": header " + row.output);
    EXPECT_TRUE(logtest::ReadFile(path) == row.bytes);
  }
  std::filesystem::resize_file(path, 524287);
  EXPECT_EQ(RunTool("--file " + path), std::pair(path + ": 524287 bytes, where a segment has 524288\n", 1));
  for (const char* wrong : {"", "3x", "3 --list", "--list --follow", "--file /none", "2147483647"})
    EXPECT_EQ(RunTool(wrong).second, 2) << wrong;
}

TEST(RingTool, ListsAndFollowsALiveRingToItsEnd) {
  const logtest::TestRing test;
  UTL_LOGInit("tool", nullptr);
  ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id), 0);
  UTL_log_storeInRing("first\n", 6);
  EXPECT_NE(RunTool("--list").first.find(test.name), std::string::npos);
  FILE* const tool = StartTool("--follow " + std::to_string(test.id));
  EXPECT_EQ(Next(tool), test.name + ": header consistent, 6 bytes stored since the last flush\n");
  EXPECT_EQ(Next(tool), "first\n");
  UTL_log_storeInRing("second\n", 7);
  EXPECT_EQ(Next(tool), "second\n");
  UTL_LOGFlushInMemoryLogs();
  EXPECT_EQ(Next(tool), "[flushed to the log file]\n");
  UTL_LOGSetEnableInMemoryLogging(false, 0);
  EXPECT_EQ(Next(tool), "[in-memory logging was turned off]\n");
  EXPECT_EQ(::pclose(tool), 0);
}

}  // namespace
