// The tool that reads in-memory logs: what it shows of a segment, and how it ends.

#include <gtest/gtest.h>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

using logtest::SegmentBytes;
using ringtool::HeaderVerdict;

FILE* StartTool(const std::string& arguments) {
  return ::popen((std::string(PLUGINSDK_TOOL) + " ring " + arguments + " 2>&1").c_str(), "r");
}

std::string NextLine(FILE* tool) {
  std::array<char, 200> line = {};
  return std::fgets(line.data(), line.size(), tool) == nullptr ? "" : line.data();
}

// All it prints, and its exit status.
std::pair<std::string, int> RunTool(const std::string& arguments) {
  FILE* const tool = StartTool(arguments);
  std::string out;
  for (int c = std::fgetc(tool); c != EOF; c = std::fgetc(tool)) {
    out += static_cast<char>(c);
  }
  return {out, WEXITSTATUS(::pclose(tool))};
}

TEST(RingTool, ShowsASavedSegmentAndChangesNothing) {
  const std::string whole = "09:05:01.000042 INFO  |1|a:1:f| old\n";
  const std::string newest = std::string(1000, 'x') + "\n";
  std::string noMagic = SegmentBytes({164, 168, 0, 4}, "abc\n");
  noMagic.replace(4, 16, 16, '\0');
  const std::string wrapped =
      "consistent, 525125 bytes stored since the last flush, the oldest 1001 overwritten\n";
  const struct {
    std::string bytes;
    std::string options;
    int status;
    std::string begin;
  } rows[] = {
      {SegmentBytes({164, 168, 0, 4}, "abc\nstale"), "", 0,
       "consistent, 4 bytes stored since the last flush\nabc\n"},
      {SegmentBytes({1165, 1165, 1, 525125}, newest + "ut\nx\n"), "", 0, wrapped + "[cut] ut\nx\n"},
      {SegmentBytes({1165, 1165, 1, 525125}, newest + whole), "", 0, wrapped + whole},
      {noMagic, "", 1, "not consistent: a line was being stored or the ring flushed\n"},
      {noMagic, "--salvage ", 1, "not consistent: a line was being stored or the ring flushed\n[cut] abc\n"},
      {SegmentBytes({164, 999999, 0, 4}, "abc\n"), "", 1,
       "not consistent: its positions and its count contradict each other\n"},
      {SegmentBytes({164, 999999, 0, 4}, "abc"), "--salvage ", 1,
       "not consistent: its positions and its count contradict each other\n[cut] abc\n"},
      {std::string(524288, 'a'), "", 1, "not consistent: it does not carry the magic of an in-memory log\n"},
  };
  const logtest::TemporaryDirectory directory;
  const std::string path = directory.path() + "/saved";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.options + row.begin);
    std::ofstream(path, std::ios::binary) << row.bytes;
    const auto [out, status] = RunTool(row.options + "--file " + path);
    EXPECT_EQ(status, row.status);
    const std::string begin = path + ": header " + row.begin;
    EXPECT_EQ(out.substr(0, begin.size()), begin);
    EXPECT_EQ(out.find("stale"), std::string::npos);
    EXPECT_TRUE(logtest::ReadFile(path) == row.bytes);
  }
  std::filesystem::resize_file(path, 524287);
  EXPECT_EQ(RunTool("--file " + path), std::pair(path + ": 524287 bytes, where a segment has 524288\n", 1));
  for (const char* wrong : {"", "3x", "3 --list", "--list --follow", "--file /none", "2147483647"}) {
    EXPECT_EQ(RunTool(wrong).second, 2) << wrong;
  }
}

TEST(RingTool, ListsAndFollowsALiveRingToItsEnd) {
  const logtest::TestRing test;
  UTL_LOGInit("tool", nullptr);
  ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id), 0);
  UTL_log_storeInRing("first\n", 6);
  EXPECT_NE(RunTool("--list").first.find(test.name), std::string::npos);
  FILE* const tool = StartTool("--follow " + std::to_string(test.id));
  EXPECT_EQ(NextLine(tool), test.name + ": header consistent, 6 bytes stored since the last flush\n");
  EXPECT_EQ(NextLine(tool), "first\n");
  UTL_log_storeInRing("second\n", 7);
  EXPECT_EQ(NextLine(tool), "second\n");
  UTL_LOGFlushInMemoryLogs();
  EXPECT_EQ(NextLine(tool), "[flushed to the log file]\n");
  UTL_LOGSetEnableInMemoryLogging(false, 0);
  EXPECT_EQ(NextLine(tool), "[in-memory logging was turned off]\n");
  EXPECT_EQ(::pclose(tool), 0);
}

TEST(RingTool, TellsNewLinesFromAFlush) {
  const auto since = [](const pluginsdk::ring::State& state, const std::string& contents) {
    const ringtool::Reading before = {HeaderVerdict::kConsistent, {164, 167, 0, 3}, "ab\n", false};
    const ringtool::Reading now = {HeaderVerdict::kConsistent, state, contents, false};
    const ringtool::Fresh fresh = ringtool::FreshSince(before, now);
    return (fresh.flushed ? "flushed, " : "") + std::to_string(fresh.missed) +
           " missed: " + std::string(fresh.bytes);
  };
  EXPECT_EQ(since({164, 170, 0, 6}, "ab\ncd\n"), "0 missed: cd\n");
  EXPECT_EQ(since({164, 167, 0, 3}, "cd\n"), "flushed, 0 missed: cd\n");
  EXPECT_EQ(since({164, 170, 0, 6}, "cd\nef\n"), "flushed, 0 missed: cd\nef\n");
  EXPECT_EQ(since({200, 200, 1, 524160}, "z\n"), "524155 missed: z\n");
  // With the count at its limit the positions tell.
  EXPECT_EQ(ringtool::StoredBetween({524288, 524288, 1, INT32_MAX}, {174, 174, 1, INT32_MAX}), 10);
}

}  // namespace
