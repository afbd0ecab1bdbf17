// The tool that reads in-memory logs: what it shows of a segment, and how it ends.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

namespace ring = pluginsdk::ring;
using logtest::TestRing;

// A wrapped ring whose newest line ends at `position`, filled with `oldest` right behind it.
std::string Wrapped(std::uint32_t position, const std::string& oldest, const std::string& newest) {
  std::string bytes(ring::kCapacity, 'x');
  const std::size_t at = position - ring::kRingStart;
  bytes.replace(at - newest.size(), newest.size(), newest);
  bytes.replace(at, oldest.size(), oldest);
  return logtest::SegmentBytes({position, position, 1, 600000}, bytes);
}

struct Outcome {
  int status;
  std::string out;
};

Outcome RunTool(const std::string& arguments) {
  FILE* tool = ::popen((std::string(PLUGINSDK_TOOL) + " ring " + arguments + " 2>&1").c_str(), "r");
  Outcome outcome = {};
  for (int c = std::fgetc(tool); c != EOF; c = std::fgetc(tool)) {
    outcome.out += static_cast<char>(c);
  }
  outcome.status = WEXITSTATUS(::pclose(tool));
  return outcome;
}

TEST(RingTool, ShowsASavedSegment) {
  const std::string whole = "09:05:01.000042 INFO  |1|a:1:f| old\n";
  std::string noMagic = logtest::SegmentBytes({164, 168, 0, 4}, "abc\n");
  noMagic.replace(4, 16, 16, '\0');
  const struct {
    const char* name;
    std::string bytes;
    std::string options;
    int status;
    std::string begin;  // behind the file's name
    std::string end;
  } rows[] = {
      {"not wrapped", logtest::SegmentBytes({164, 168, 0, 4}, "abc\nstale"), "", 0,
       "header consistent, 4 bytes stored since the last flush\nabc\n", "abc\n"},
      {"empty", logtest::SegmentBytes({}, "stale"), "", 0,
       "header consistent, 0 bytes stored since the last flush\n", "flush\n"},
      {"wrapped, front cut", Wrapped(1000, "ut line\n" + whole, "newest\n"), "", 0,
       "header consistent, 600000 bytes stored since the last flush, the oldest 75876 overwritten\n"
       "[cut] ut line\n" +
           whole,
       "newest\n"},
      {"wrapped, front whole", Wrapped(524288, "", "newest\n").replace(164, whole.size(), whole), "", 0,
       "header consistent, 600000 bytes stored since the last flush, the oldest 75876 overwritten\n" + whole,
       "newest\n"},
      {"storing was interrupted", noMagic, "", 1,
       "header not consistent: a line was being stored or the ring flushed\n", "flushed\n"},
      {"storing was interrupted, salvaged", noMagic, "--salvage ", 1,
       "header not consistent: a line was being stored or the ring flushed\n[cut] abc\n", "abc\n"},
      {"contradictory", logtest::SegmentBytes({164, 999999, 0, 4}, "abc\n"), "", 1,
       "header not consistent: its positions and its count contradict each other\n", "other\n"},
      {"contradictory, salvaged", logtest::SegmentBytes({164, 999999, 0, 4}, "abc"), "--salvage ", 1,
       "header not consistent: its positions and its count contradict each other\n[cut] abc\n", "abc\n"},
      {"something else", std::string(524288, 'a'), "", 1,
       "header not consistent: it does not carry the magic of an in-memory log\n", "log\n"},
      {"too short", std::string(524287, 'a'), "", 1, "524287 bytes, where a segment has 524288\n", ""},
  };
  const logtest::TemporaryDirectory directory;
  const std::string path = directory.path() + "/saved";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::ofstream(path, std::ios::binary) << row.bytes;
    const Outcome outcome = RunTool(row.options + "--file " + path);
    EXPECT_EQ(outcome.status, row.status);
    const std::string begin = path + ": " + row.begin;
    EXPECT_EQ(outcome.out.substr(0, begin.size()), begin);
    EXPECT_EQ(outcome.out.substr(outcome.out.size() - row.end.size()), row.end);
    EXPECT_TRUE(logtest::ReadFile(path) == row.bytes);  // nothing was changed
  }
}

TEST(RingTool, FindsSegmentsAndRefusesWhatItCannotDo) {
  const TestRing test;
  EXPECT_EQ(RunTool(std::to_string(test.id())).status, 2);
  std::ofstream("/dev/shm" + test.name(), std::ios::binary)
      << logtest::SegmentBytes({164, 167, 0, 3}, "ab\n");
  const Outcome shown = RunTool(std::to_string(test.id()));
  EXPECT_EQ(shown.out, test.name() + ": header consistent, 3 bytes stored since the last flush\nab\n");
  EXPECT_EQ(shown.status, 0);
  const Outcome list = RunTool("--list");
  EXPECT_NE(list.out.find(test.name()), std::string::npos);
  EXPECT_EQ(list.status, 0);
  for (const char* wrong :
       {"", "3x", "3 --list", "--list --follow", "--file /dev/null --follow", "--file /none"}) {
    EXPECT_EQ(RunTool(wrong).status, 2) << wrong;
  }
}

TEST(RingTool, FollowsALiveRingToItsEnd) {
  const TestRing test;
  ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
  UTL_log_storeInRing("first\n", 6);
  FILE* tool =
      ::popen((std::string(PLUGINSDK_TOOL) + " ring --follow " + std::to_string(test.id())).c_str(), "r");
  const auto nextLine = [tool] {
    std::array<char, 200> line = {};
    return std::string(std::fgets(line.data(), line.size(), tool) == nullptr ? "" : line.data());
  };
  EXPECT_EQ(nextLine(), test.name() + ": header consistent, 6 bytes stored since the last flush\n");
  EXPECT_EQ(nextLine(), "first\n");
  UTL_log_storeInRing("second\n", 7);
  EXPECT_EQ(nextLine(), "second\n");
  UTL_LOGFlushInMemoryLogs();
  EXPECT_EQ(nextLine(), "[flushed to the log file]\n");
  UTL_LOGSetEnableInMemoryLogging(false, 0);
  EXPECT_EQ(nextLine(), "[in-memory logging was turned off]\n");
  EXPECT_EQ(::pclose(tool), 0);
}

TEST(RingTool, TellsNewLinesFromAFlush) {
  const ring::State start = {164, 167, 0, 3};
  const struct {
    const char* name;
    ring::State state;
    const char* contents;
    const char* bytes;
    bool flushed;
    std::int64_t missed;
  } rows[] = {
      {"nothing new", start, "ab\n", "", false, 0},
      {"a line", {164, 170, 0, 6}, "ab\ncd\n", "cd\n", false, 0},
      {"flushed", {}, "", "", true, 0},
      {"flushed and filled as far", start, "cd\n", "cd\n", true, 0},
      {"flushed and filled further", {164, 170, 0, 6}, "cd\nef\n", "cd\nef\n", true, 0},
      // Wrapped and cut meanwhile; the contents are shortened here.
      {"overtaken", {200, 200, 1, 524160}, "z\n", "z\n", false, 524155},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const ringtool::Reading before = {ringtool::HeaderVerdict::kConsistent, start, "ab\n", false};
    const ringtool::Reading now = {ringtool::HeaderVerdict::kConsistent, row.state, row.contents, false};
    const ringtool::Fresh fresh = ringtool::FreshSince(before, now);
    EXPECT_EQ(fresh.bytes, row.bytes);
    EXPECT_EQ(fresh.flushed, row.flushed);
    EXPECT_EQ(fresh.missed, row.missed);
  }
  // With the count at its limit the positions tell.
  EXPECT_EQ(ringtool::StoredBetween({524288, 524288, 1, INT32_MAX}, {174, 174, 1, INT32_MAX}), 10);
  EXPECT_EQ(ringtool::StoredBetween({164, 200, 0, 36}, {164, 190, 0, 26}), std::nullopt);
}

}  // namespace
