// The in-memory log: what its segment holds after each operation, seen from outside, and what a flush makes
// of it.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

namespace ring = pluginsdk::ring;
using logtest::TestRing;
using ringtool::HeaderVerdict;

constexpr std::uint32_t kCapacity = ring::kCapacity;

#define LOG(...) UTL_LOGPrint(UTL_LOG_INFO, "Ring_test", __LINE__, "F", __VA_ARGS__)

// A line of this length that differs from the one before and from itself shifted.
std::string LineOf(std::size_t length) {
  static int made = 0;
  std::string line = std::to_string(++made) + ":";
  for (int i = 0; line.size() < length; ++i) {
    line += std::to_string(i * 7919);
  }
  line.resize(length);
  line.back() = '\n';
  return line;
}

std::string Fields(const ring::State& state) {
  return std::to_string(state.readPosition) + " " + std::to_string(state.writePosition) + " " +
         std::to_string(state.wrapped) + " " + std::to_string(state.bytesStored);
}

// All process log files of the root, in order.
std::string AllFiles(const std::string& directory) {
  std::string text;
  for (const std::string& path : logtest::FilesIn(directory)) {
    text += logtest::ReadFile(path);
  }
  return text;
}

TEST(LogRing, LinesStandInTheSegmentAsLaidOut) {
  const struct {
    const char* name;
    std::vector<std::size_t> lengths;
    const char* fields;  // read position, write position, wrapped, bytes stored
  } rows[] = {
      {"nothing", {}, "164 164 0 0"},
      {"one line", {100}, "164 264 0 100"},
      {"exactly the capacity", {kCapacity}, "164 524288 0 524124"},
      {"a byte more is dropped", {10, kCapacity + 1}, "164 174 0 10"},
      {"up to the end", {524000, 124}, "164 524288 0 524124"},
      {"from the end on", {524000, 124, 50}, "214 214 1 524174"},
      {"over the end", {524000, 125}, "165 165 1 524125"},
      {"further after wrapping", {524000, 125, 50}, "215 215 1 524175"},
      {"all but a byte overwritten", {10, kCapacity}, "174 174 1 524134"},
      {"full, and full again", {kCapacity, kCapacity}, "524288 524288 1 1048248"},
  };
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("ring", nullptr);
    for (const auto& row : rows) {
      SCOPED_TRACE(row.name);
      const TestRing test;
      ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
      std::string stored;
      for (const std::size_t length : row.lengths) {
        const std::string line = LineOf(length);
        UTL_log_storeInRing(line.data(), line.size());
        stored += length <= kCapacity ? line : "";
      }
      const auto reading = test.Read();
      EXPECT_EQ(reading.verdict, HeaderVerdict::kConsistent);
      EXPECT_EQ(Fields(reading.state), row.fields);
      const std::size_t kept = std::min<std::size_t>(stored.size(), kCapacity);
      EXPECT_TRUE(reading.contents == stored.substr(stored.size() - kept));
      EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, 0), 0);
      EXPECT_FALSE(test.Exists());
    }
  });
  logtest::ExpectCleanExit(result);
}

TEST(LogRing, TheSegmentIsOwnerOnlyAndItsBytesAreTheContract) {
  const TestRing test;
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("ring", nullptr);
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id() + 1), 0);  // on already: looks at nothing
    UTL_log_storeInRing("ab\n", 3);
    const std::string path = "/dev/shm" + test.name();
    struct stat status = {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const std::string bytes = logtest::ReadFile(path);
    EXPECT_EQ(bytes.size(), 524288U);
    EXPECT_EQ(bytes.substr(0, 40),
              std::string("\1\0\0\0\x0a\x0a\x9a\xfd\xd0\xa4\x76\xec\xaa\xb3\x6a\x2d\x9a\xba\x67\x26"
                          "\xa4\0\0\0\xa7\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0",
                          40));
    EXPECT_EQ(bytes.substr(164, 4), std::string("ab\n\0", 4));
  });
  logtest::ExpectCleanExit(result);
  EXPECT_FALSE(ringtool::RingSegment::OfName(ringtool::SegmentName(test.id() + 1)).Bytes());
}

TEST(LogRing, AFlushWritesTheDroppedBytesFirstAndMaySwitchFiles) {
  for (const bool keepsFiles : {true, false}) {
    SCOPED_TRACE(keepsFiles);
    const logtest::TemporaryDirectory root;
    const TestRing test;
    std::string stored;
    for (int i = 0; i < 60; ++i) {
      stored += LineOf(10000);
    }
    const auto result = logtest::RunInChild([&] {
      UTL_LOGInit("app", root.c_str());
      if (keepsFiles) {
        UTL_LOGSetMax(4 * 524288);
      }
      // The file is so full that the first piece of the flush brings it to the size of a switch.
      LOG("%s", LineOf(100000).c_str());
      ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
      for (std::size_t at = 0; at < stored.size(); at += 10000) {
        UTL_log_storeInRing(stored.data() + at, 10000);
      }
      UTL_LOGFlushInMemoryLogs();
      EXPECT_EQ(Fields(test.Read().state), "164 164 0 0");
      const std::string before = AllFiles(root.seriesOf("app"));
      UTL_LOGFlushInMemoryLogs();
      EXPECT_TRUE(AllFiles(root.seriesOf("app")) == before);
    });
    logtest::ExpectCleanExit(result);
    const auto files = logtest::FilesIn(root.seriesOf("app"));
    ASSERT_EQ(files.size(), keepsFiles ? 2U : 1U);  // the default keeps only the second piece
    const std::string second = stored.substr(stored.size() - 75876);
    const std::string last = logtest::ReadFile(files.back());
    EXPECT_TRUE(last.substr(last.size() - second.size()) == second);
    if (keepsFiles) {
      const std::string first = logtest::ReadFile(files.front());
      const std::size_t at = first.find("75876 bytes of logging were dropped here\n");
      ASSERT_NE(at, std::string::npos);
      EXPECT_TRUE(first.substr(first.find('\n', at) + 1, 448248) == stored.substr(75876, 448248));
    }
  }
}

TEST(LogRing, TheCountOutlivesItsHeaderField) {
  const TestRing test;
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("app", nullptr);
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    const std::string line = LineOf(kCapacity);
    for (int i = 0; i < 4100; ++i) {
      UTL_log_storeInRing(line.data(), line.size());
    }
    EXPECT_EQ(Fields(test.Read().state), "524288 524288 1 2147483647");
    UTL_LOGFlushInMemoryLogs();
  });
  logtest::ExpectCleanExit(result);
  // 4099 times the capacity, which is more than an int holds.
  EXPECT_EQ(logtest::Messages(result.out),
            std::vector<std::string>{" ALWAYS|2148384276 bytes of logging were dropped here"});
}

TEST(LogRing, AdoptsWhatCanBeTrueAndDistrustsTheRest) {
  const std::string old = "left by another run\n";
  const auto count = static_cast<std::int32_t>(old.size());
  const auto end = static_cast<std::uint32_t>(164 + old.size());
  enum { kKept, kEmptied, kEmptiedWithWarning };
  const struct {
    const char* name;
    ring::State state;
    int outcome;
    bool magic = true;
  } rows[] = {
      {"as stored", {164, end, 0, count}, kKept},
      {"wrapped", {end, end, 1, 524125}, kKept},
      {"wrapped at the end", {524288, 524288, 1, 1048248}, kKept},
      {"wrapped, count at its limit", {1000, 1000, 1, INT32_MAX}, kKept},
      {"no magic", {164, end, 0, count}, kEmptied, false},
      {"read before the ring", {163, end, 0, count}, kEmptiedWithWarning},
      {"read inside, not wrapped", {165, end, 0, count}, kEmptiedWithWarning},
      {"count too small", {164, end, 0, count - 1}, kEmptiedWithWarning},
      {"count negative", {164, end, 0, -1}, kEmptiedWithWarning},
      {"count and position beyond the end", {164, 524289, 0, 524125}, kEmptiedWithWarning},
      {"wrapped neither 0 nor 1", {end, end, 2, 600000}, kEmptiedWithWarning},
      {"wrapped, positions differ", {end, end + 1, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, before the ring", {163, 163, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, beyond the end", {524289, 524289, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, count that needs no wrapping", {end, end, 1, 524124}, kEmptiedWithWarning},
      {"wrapped, count negative", {end, end, 1, INT32_MIN}, kEmptiedWithWarning},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const TestRing test;
    std::string bytes = logtest::SegmentBytes(row.state, old);
    bytes[4] = static_cast<char>(row.magic ? bytes[4] : 'x');
    std::ofstream("/dev/shm" + test.name(), std::ios::binary) << bytes;
    const auto result = logtest::RunInChild([&] {
      UTL_LOGInit("app", nullptr);
      ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
      const auto reading = test.Read();
      EXPECT_EQ(reading.verdict, HeaderVerdict::kConsistent);
      EXPECT_EQ(Fields(reading.state), row.outcome == kKept ? Fields(row.state) : "164 164 0 0");
      EXPECT_EQ(reading.contents.find(old) != std::string::npos, row.outcome == kKept);
    });
    logtest::ExpectCleanExit(result);
    std::vector<std::string> warnings;
    if (row.outcome == kEmptiedWithWarning) {
      warnings.push_back("!!WRN!!|The header of the in-memory log \"" + test.name() +
                         "\" contradicts itself; its contents are dropped");
    }
    EXPECT_EQ(logtest::Messages(result.out), warnings);
  }
}

TEST(LogRing, AHeaderThatAnotherProcessSpoilsLeadsNowhere) {
  const TestRing test;
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("app", nullptr);
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    for (const ring::State& state :
         {ring::State{0, 0, 0, 0}, {164, 0xFFFFFFF0U, 0, 500}, {0x7FFFFFFFU, 0x7FFFFFFFU, 1, INT32_MAX}}) {
      SCOPED_TRACE(Fields(state));
      ring::StoreState(*utl_shmHeader, state);
      UTL_log_storeInRing("line\n", 5);
      EXPECT_EQ(test.Read().contents, "line\n");
      ring::StoreState(*utl_shmHeader, state);
      UTL_LOGFlushInMemoryLogs();
      EXPECT_EQ(Fields(test.Read().state), "164 164 0 0");
    }
  });
  logtest::ExpectCleanExit(result);
}

TEST(LogRing, LinesGoToTheRingOnlyWhileAFileIsOpenAndOffWritesThemOut) {
  const logtest::TemporaryDirectory root;
  const TestRing test;
  const auto result = logtest::RunInChild([&] {
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, test.id()), 0);  // is off: not even initialised
    UTL_LOGInit("app", root.c_str());
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    LOG("lost, no file is open");
    EXPECT_EQ(test.Read().contents, "");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(false, test.id()), 0);
    LOG("to the file");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    LOG("to the ring");
    UTL_LOGSetWriteToFile(false);
    LOG("to standard output alone");
    UTL_LOGSetWriteToFile(true);
    EXPECT_EQ(logtest::Messages(test.Read().contents), std::vector<std::string>{" INFO  |to the ring"});
    if (::fork() == 0) {  // a child writes into the file; its parent's ring is none of its business
      LOG("from the child");
      UTL_LOGSetEnableInMemoryLogging(false, test.id());
      ::_exit(0);
    }
    ::wait(nullptr);
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, test.id() + 1), 0);  // another one's identifier
    EXPECT_FALSE(test.Exists());
  });
  logtest::ExpectCleanExit(result);
  const auto messages = logtest::Messages(AllFiles(root.seriesOf("app")));
  ASSERT_GE(messages.size(), 3U);
  EXPECT_EQ(
      std::vector<std::string>(messages.end() - 3, messages.end()),
      (std::vector<std::string>{" INFO  |to the file", " INFO  |from the child", " INFO  |to the ring"}));
}

TEST(LogRing, WhatCannotBeOpenedLeavesTheFileLogAndNoName) {
  const struct {
    const char* name;
    __rlimit_resource resource;
    rlim_t limit;
  } rows[] = {{"no descriptor", RLIMIT_NOFILE, 0}, {"no room", RLIMIT_FSIZE, 200000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const logtest::TemporaryDirectory root;
    const TestRing test;
    const auto result = logtest::RunInChild([&] {
      UTL_LOGInit("app", root.c_str());
      LOG("before");
      std::signal(SIGXFSZ, SIG_IGN);
      rlimit limit = {};
      ::getrlimit(row.resource, &limit);
      const rlimit usual = limit;
      limit.rlim_cur = row.limit;
      ASSERT_EQ(::setrlimit(row.resource, &limit), 0);
      EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), -3);
      ASSERT_EQ(::setrlimit(row.resource, &usual), 0);
      LOG("after");
      EXPECT_FALSE(test.Exists());
    });
    logtest::ExpectCleanExit(result);
    EXPECT_EQ(logtest::Messages(AllFiles(root.seriesOf("app"))).back(), " INFO  |after");
  }
}

TEST(LogRing, ThreadsStoreWholeLinesWhileAnotherProcessReads) {
  constexpr int kThreads = 4;
  constexpr int kLines = 4000;
  const logtest::TemporaryDirectory root;
  const TestRing test;
  const auto result = logtest::RunInChild([&] {
    UTL_LOGInit("app", root.c_str());
    UTL_LOGSetWriteToStdout(false);
    UTL_LOGSetMax(0);
    LOG("open");
    ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, test.id()), 0);
    std::atomic<int> busy{kThreads};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t, &busy] {
        for (int i = 0; i < kLines; ++i) {
          LOG("thread %d line %d end", t, i);
          if (i % 1000 == 999) {
            UTL_LOGFlushInMemoryLogs();
          }
        }
        --busy;
      });
    }
    const auto segment = ringtool::RingSegment::OfName(test.name());
    while (busy > 0) {
      const auto reading = ringtool::ReadRing(segment.Bytes());
      const std::string newest =
          reading.contents.substr(reading.contents.rfind('\n', reading.contents.size() - 2) + 1);
      EXPECT_TRUE(newest.empty() || newest.substr(newest.size() - 5) == " end\n") << newest;
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    UTL_LOGSetEnableInMemoryLogging(false, 0);
  });
  logtest::ExpectCleanExit(result);
  std::array<int, kThreads> next = {};
  for (const auto& line : logtest::ParseLines(AllFiles(root.seriesOf("app")))) {
    int t = 0;
    int i = 0;
    if (std::sscanf(line.message.c_str(), "thread %d line %d end", &t, &i) == 2) {
      EXPECT_EQ(i, next.at(static_cast<std::size_t>(t))++);
    }
  }
  EXPECT_EQ(next, (std::array<int, kThreads>{kLines, kLines, kLines, kLines}));
}

}  // namespace
