// The in-memory log: what its segment holds after each operation, seen from outside, and what a flush makes
// of it.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>

#include "LogTestSupport.h"
#include "RingTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

namespace ring = pluginsdk::ring;
using namespace logtest;

// Differs from other lines and from itself shifted.
std::string LineOf(std::size_t length) {
  static int made = 0;
  std::string line;
  while (line.size() < length) line += std::to_string(++made) + ":";
  line.resize(length - 1);
  return line + "\n";
}

void Store(const std::string& line) {
  UTL_log_storeInRing(line.data(), line.size());
}

std::string Fields(const ring::State& state) {
  return std::to_string(state.readPosition) + " " + std::to_string(state.writePosition) + " " +
         std::to_string(state.wrapped) + " " + std::to_string(state.bytesStored);
}

class LogRing : public AppTest {
 protected:
  void TurnOn() { ASSERT_EQ(UTL_LOGSetEnableInMemoryLogging(true, m_test.id), 0); }
  void TurnOff() {
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(false, 0), 0);  // whatever the identifier
    EXPECT_FALSE(std::filesystem::exists(m_test.path));
  }

  TestRing m_test;
};

TEST_F(LogRing, LinesStandInTheSegmentAsLaidOut) {
  const struct {
    const char* name;
    std::vector<std::size_t> lengths;
    const char* fields;  // read position, write position, wrapped, bytes stored
  } rows[] = {
      {"exactly the capacity", {524124}, "164 524288 0 524124"},
      {"a byte more is dropped", {10, 524125}, "164 174 0 10"},
      {"up to the end", {524000, 124}, "164 524288 0 524124"},
      {"from the end on", {524000, 124, 50}, "214 214 1 524174"},
      {"over the end", {524000, 125}, "165 165 1 524125"},
      {"further after wrapping", {524000, 125, 50}, "215 215 1 524175"},
      {"full, and full again", {524124, 524124}, "524288 524288 1 1048248"},
  };
  const auto result = Run([&] {
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
      EXPECT_TRUE(reading.contents == stored.substr(std::max(stored.size(), 524124UL) - 524124));
      TurnOff();
    }
    TurnOn();
    Store("ab\n");
    const std::string bytes = ReadFile(m_test.path);
    EXPECT_EQ(bytes.substr(0, 36) + bytes.substr(164, 4),
              std::string("\1\0\0\0\x0a\x0a\x9a\xfd\xd0\xa4\x76\xec\xaa\xb3\x6a\x2d\x9a\xba\x67\x26"
                          "\xa4\0\0\0\xa7\0\0\0\0\0\0\0\3\0\0\0ab\n\0",
                          40));
    struct stat status = {};
    EXPECT_EQ(::stat(m_test.path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const std::string line = LineOf(524124);
    for (int i = 0; i < 4100; ++i) {
      Store(line);
    }
    EXPECT_EQ(Fields(m_test.Read().state), "167 167 1 2147483647");
    UTL_LOGFlushInMemoryLogs();  // tells more than its field can hold: 4099 * 524124 + 3
  });
  EXPECT_NE(result.out.find("| 2148384279 bytes of logging were dropped here\n"), std::string::npos);
}

TEST_F(LogRing, AFlushTellsTheDroppedBytesAndMaySwitchFilesBetweenItsPieces) {
  std::string stored;
  Run([&] {
    UTL_LOGSetMax(4 * 524288);
    Print(LineOf(100000));  // the first piece of the flush fills up this file
    TurnOn();
    for (int i = 0; i < 60; ++i) {
      const std::string line = LineOf(10000);
      Store(line);
      stored += line;
    }
    UTL_LOGFlushInMemoryLogs();
    const std::string log = ProcessLog();
    const std::string dropped = "| 75876 bytes of logging were dropped here\n";
    EXPECT_TRUE(log.find(dropped + stored.substr(75876, 448248)) != std::string::npos);
    const std::string second = ReadFile(FilesIn(m_series).at(1));
    EXPECT_TRUE(second.substr(second.size() - 75876) == stored.substr(524124));
    UTL_LOGFlushInMemoryLogs();  // nothing stored, nothing written
    EXPECT_TRUE(ProcessLog() == log);
    EXPECT_EQ(Fields(m_test.Read().state), "164 164 0 0");
  });
}

TEST_F(LogRing, OnlyAHeaderThatCanBeTrueIsAdoptedAndUsed) {
  const struct {
    const char* name;
    ring::State state;
    bool kept;
    char magic = '\x0a';
  } rows[] = {
      {"as stored", {164, 168, 0, 4}, true},
      {"wrapped at the end", {524288, 524288, 1, 1048248}, true},
      {"wrapped, count at its limit", {168, 168, 1, INT32_MAX}, true},
      {"no magic", {164, 168, 0, 4}, false, 'x'},
      {"read inside, not wrapped", {165, 168, 0, 4}, false},
      {"count too small", {164, 168, 0, 3}, false},
      {"beyond the end", {164, 524289, 0, 524125}, false},
      {"wrapped neither 0 nor 1", {168, 168, 2, 600000}, false},
      {"wrapped, positions differ", {168, 169, 1, 600000}, false},
      {"wrapped, before the ring", {163, 163, 1, 600000}, false},
      {"wrapped, beyond the end", {524289, 524289, 1, 600000}, false},
      {"wrapped, count that needs no wrapping", {168, 168, 1, 524124}, false},
  };
  const std::string warning = "!!WRN!!|The header of the in-memory log \"" + m_test.name +
                              "\" contradicts itself; its contents are dropped";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::string bytes = SegmentBytes(row.state, "old\n");
    bytes[4] = row.magic;
    std::ofstream(m_test.path, std::ios::binary) << bytes;
    const bool warned = !row.kept && row.magic != 'x';
    const auto result = Run([&] {
      UTL_LOGSetLevel(UTL_LOG_ALWAYS, 0);
      TurnOn();
      EXPECT_EQ(Fields(m_test.Read().state), row.kept ? Fields(row.state) : "164 164 0 0");
      if (warned) {  // the same, written by somebody while we run
        ring::StoreState(*utl_shmHeader, row.state);
        Store("line\n");
        EXPECT_EQ(m_test.Read().contents, "line\n");
      }
      UTL_LOGSetWriteToStdout(false);
      UTL_LOGFlushInMemoryLogs();
      EXPECT_EQ(ProcessLog().find("old\n") != std::string::npos, row.kept);
    });
    EXPECT_EQ(Messages(result.out), Texts(warned ? 1 : 0, warning));
    std::filesystem::remove_all(m_series);
  }
}

TEST_F(LogRing, LinesGoToTheRingWhileAFileIsOpenAndOffWritesThemOut) {
  Run([&] {
    TurnOn();
    Print("lost, no file is open");
    TurnOff();
    Print("to the file");
    TurnOn();
    Print("to the ring");
    EXPECT_EQ(UTL_LOGSetEnableInMemoryLogging(true, m_test.id + 1), 0);  // is on already
    EXPECT_EQ(Messages(m_test.Read().contents), Texts{" INFO  |to the ring"});
    if (::fork() == 0) {  // a child writes into the file; its parent's ring is none of its business
      Print("from the child");
      UTL_LOGSetEnableInMemoryLogging(false, m_test.id);
      ::_exit(0);
    }
    ::wait(nullptr);
    TurnOff();
  });
  Texts messages = Messages(ProcessLog());
  messages.erase(messages.begin(), messages.end() - 3);
  EXPECT_EQ(messages, (Texts{" INFO  |to the file", " INFO  |from the child", " INFO  |to the ring"}));
}

}  // namespace
