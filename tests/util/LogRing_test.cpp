// The in-memory log: what its segment holds after each operation, seen from outside, and what a flush makes
// of it.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

namespace ring = pluginsdk::ring;
using Texts = std::vector<std::string>;

#define LOG(...) UTL_LOGPrint(UTL_LOG_INFO, "Ring_test", __LINE__, "F", __VA_ARGS__)

// Differs from other lines and from itself shifted.
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

void Store(const std::string& line) {
  UTL_log_storeInRing(line.data(), line.size());
}

std::string Fields(const ring::State& state) {
  return std::to_string(state.readPosition) + " " + std::to_string(state.writePosition) + " " +
         std::to_string(state.wrapped) + " " + std::to_string(state.bytesStored);
}

class LogRing : public ::testing::Test {
 protected:
  // Runs in a process that has not logged yet. Returns what it printed.
  Texts InApp(const std::function<void()>& body) {
    const auto result = logtest::RunInChild([&] {
      UTL_LOGInit("app", m_root.c_str());
      body();
    });
    logtest::ExpectCleanExit(result);
    return logtest::Messages(result.out);
  }
  void TurnOn() { ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, m_test.id), 0); }
  std::string Files() {
    std::string text;
    for (const std::string& path : logtest::FilesIn(m_root.seriesOf("app"))) {
      text += logtest::ReadFile(path);
    }
    return text;
  }

  logtest::TemporaryDirectory m_root;
  logtest::TestRing m_test;
};

TEST_F(LogRing, LinesStandInTheSegmentAsLaidOut) {
  const struct {
    const char* name;
    std::vector<std::size_t> lengths;
    const char* fields;  // read position, write position, wrapped, bytes stored
  } rows[] = {
      {"one line", {100}, "164 264 0 100"},
      {"exactly the capacity", {524124}, "164 524288 0 524124"},
      {"a byte more is dropped", {10, 524125}, "164 174 0 10"},
      {"up to the end", {524000, 124}, "164 524288 0 524124"},
      {"from the end on", {524000, 124, 50}, "214 214 1 524174"},
      {"over the end", {524000, 125}, "165 165 1 524125"},
      {"further after wrapping", {524000, 125, 50}, "215 215 1 524175"},
      {"full, and full again", {524124, 524124}, "524288 524288 1 1048248"},
  };
  InApp([&] {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.name);
      TurnOn();
      std::string stored;
      for (const std::size_t length : row.lengths) {
        const std::string line = LineOf(length);
        Store(line);
        stored += length <= ring::kCapacity ? line : "";
      }
      const auto reading = m_test.Read();
      EXPECT_EQ(Fields(reading.state), row.fields);
      EXPECT_TRUE(reading.contents ==
                  stored.substr(stored.size() - std::min<std::size_t>(stored.size(), 524124)));
      EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, 0), 0);  // whatever the identifier
      EXPECT_FALSE(std::filesystem::exists(m_test.path));
    }
    TurnOn();
    Store("ab\n");
    EXPECT_EQ(logtest::ReadFile(m_test.path).substr(0, 36) + logtest::ReadFile(m_test.path).substr(164, 4),
              std::string("\1\0\0\0\x0a\x0a\x9a\xfd\xd0\xa4\x76\xec\xaa\xb3\x6a\x2d\x9a\xba\x67\x26"
                          "\xa4\0\0\0\xa7\0\0\0\0\0\0\0\3\0\0\0ab\n\0",
                          40));
    struct stat status = {};
    EXPECT_EQ(::stat(m_test.path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
  });
}

TEST_F(LogRing, AFlushTellsTheDroppedBytesAndMaySwitchFilesBetweenItsPieces) {
  std::string stored;
  for (int i = 0; i < 60; ++i) {
    stored += LineOf(10000);
  }
  InApp([&] {
    UTL_LOGSetMax(4 * 524288);
    LOG("%s", LineOf(100000).c_str());  // the first piece of the flush fills up this file
    TurnOn();
    for (std::size_t at = 0; at < stored.size(); at += 10000) {
      Store(stored.substr(at, 10000));
    }
    UTL_LOGFlushInMemoryLogs();
    const std::string files = Files();
    UTL_LOGFlushInMemoryLogs();  // nothing stored, nothing written
    EXPECT_TRUE(Files() == files);
    EXPECT_EQ(Fields(m_test.Read().state), "164 164 0 0");
  });
  const auto files = logtest::FilesIn(m_root.seriesOf("app"));
  ASSERT_EQ(files.size(), 2U);
  const std::string first = logtest::ReadFile(files[0]);
  const std::size_t dropped = first.find("| 75876 bytes of logging were dropped here\n");
  ASSERT_NE(dropped, std::string::npos);
  EXPECT_TRUE(first.substr(first.find('\n', dropped) + 1, 448248) == stored.substr(75876, 448248));
  const std::string second = logtest::ReadFile(files[1]);
  EXPECT_TRUE(second.substr(second.size() - 75876) == stored.substr(524124));
}

TEST_F(LogRing, TheCountOutlivesItsHeaderField) {
  const auto printed = InApp([&] {
    TurnOn();
    const std::string line = LineOf(524124);
    for (int i = 0; i < 4100; ++i) {
      Store(line);
    }
    EXPECT_EQ(Fields(m_test.Read().state), "524288 524288 1 2147483647");
    UTL_LOGFlushInMemoryLogs();
  });
  EXPECT_EQ(printed.at(0), " ALWAYS|2148384276 bytes of logging were dropped here");  // 4099 * 524124
}

TEST_F(LogRing, OnlyAHeaderThatCanBeTrueIsAdoptedAndUsed) {
  enum { kKept, kEmptied, kEmptiedWithWarning };
  const struct {
    const char* name;
    ring::State state;
    int outcome;
    char magic = '\x0a';
  } rows[] = {
      {"as stored", {164, 168, 0, 4}, kKept},
      {"wrapped at the end", {524288, 524288, 1, 1048248}, kKept},
      {"wrapped, count at its limit", {168, 168, 1, INT32_MAX}, kKept},
      {"no magic", {164, 168, 0, 4}, kEmptied, 'x'},
      {"read inside, not wrapped", {165, 168, 0, 4}, kEmptiedWithWarning},
      {"count too small", {164, 168, 0, 3}, kEmptiedWithWarning},
      {"count negative", {164, 168, 0, -1}, kEmptiedWithWarning},
      {"beyond the end", {164, 524289, 0, 524125}, kEmptiedWithWarning},
      {"wrapped neither 0 nor 1", {168, 168, 2, 600000}, kEmptiedWithWarning},
      {"wrapped, positions differ", {168, 169, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, before the ring", {163, 163, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, beyond the end", {524289, 524289, 1, 600000}, kEmptiedWithWarning},
      {"wrapped, count that needs no wrapping", {168, 168, 1, 524124}, kEmptiedWithWarning},
      {"wild", {0x7FFFFFFFU, 0xFFFFFFF0U, 1, INT32_MIN}, kEmptiedWithWarning},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::string bytes = logtest::SegmentBytes(row.state, "old\n");
    bytes[4] = row.magic;
    std::ofstream(m_test.path, std::ios::binary) << bytes;
    const auto printed = InApp([&] {
      UTL_LOGSetLevel(UTL_LOG_ALWAYS, 0);
      TurnOn();
      EXPECT_EQ(Fields(m_test.Read().state), row.outcome == kKept ? Fields(row.state) : "164 164 0 0");
      EXPECT_EQ(m_test.Read().contents.find("old\n") != std::string::npos, row.outcome == kKept);
      if (row.outcome == kEmptiedWithWarning) {  // the same, written by somebody while we run
        ring::StoreState(*utl_shmHeader, row.state);
        Store("line\n");
        EXPECT_EQ(m_test.Read().contents, "line\n");
      }
    });
    EXPECT_EQ(printed, row.outcome != kEmptiedWithWarning
                           ? Texts()
                           : Texts{"!!WRN!!|The header of the in-memory log \"" + m_test.name +
                                   "\" contradicts itself; its contents are dropped"});
  }
}

TEST_F(LogRing, LinesGoToTheRingWhileAFileIsOpenAndOffWritesThemOut) {
  InApp([&] {
    TurnOn();
    LOG("lost, no file is open");
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, 0), 0);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
    const rlimit tooLow = {200000, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &tooLow);
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, m_test.id), -3);
    EXPECT_FALSE(std::filesystem::exists(m_test.path));
    ::setrlimit(RLIMIT_FSIZE, &none);
    LOG("to the file");
    TurnOn();
    LOG("to the ring");
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, m_test.id + 1), 0);  // is on already
    EXPECT_EQ(logtest::Messages(m_test.Read().contents), Texts{" INFO  |to the ring"});
    if (::fork() == 0) {  // a child writes into the file; its parent's ring is none of its business
      LOG("from the child");
      UTL_LOGSetEnableInMemoryLogging(false, m_test.id);
      ::_exit(0);
    }
    ::wait(nullptr);
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, 0), 0);
  });
  Texts messages = logtest::Messages(Files());
  messages.erase(messages.begin(), messages.end() - 3);
  EXPECT_EQ(messages, (Texts{" INFO  |to the file", " INFO  |from the child", " INFO  |to the ring"}));
}

}  // namespace
