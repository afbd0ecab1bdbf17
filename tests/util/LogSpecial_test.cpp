// Special logs: what they receive, where they end, how they are restarted and stopped, failures.

#include <fcntl.h>

#include "LogFaults.h"
#include "LogTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

using namespace logtest;

constexpr unsigned kLarge = 1 << 20;

class LogSpecial : public AppTest {
 protected:
  std::string Special(const std::string& name) const { return Path("special_logs/" + name); }
};

TEST_F(LogSpecial, ReceivesEveryLineFromItsStart) {
  const auto result = Run([] {
    Print("opens the process log");
    UTL_LOGStartSpecialLog("a", kLarge);
    UTL_LOGStartSpecialLog("sub/b", kLarge);
    Print("both");
    Print("trace is off", UTL_LOG_TRACE);
    UTL_LOGSetWriteToFile(false);
    Print("standard output only");
    UTL_LOGSetWriteToFile(true);
    UTL_LOGStopSpecialLogs();
    Print("after");
  });
  const std::string started = " ALWAYS|Now start writing to special log file \"";
  EXPECT_EQ(Messages(result.out).at(4), started + Special("a") + "\"");
  EXPECT_EQ(Messages(ReadFile(Special("a"))), (Texts{started + Special("sub/b") + "\"", " INFO  |both"}));
  EXPECT_EQ(Messages(ReadFile(Special("sub/b"))), Texts{" INFO  |both"});
}

TEST_F(LogSpecial, LimitIsTestedBeforeTheLine) {
  Run([this] {
    Print("opens the process log");
    UTL_LOGStartSpecialLog("measure", kLarge);
    Print("line");
    const auto length = static_cast<unsigned>(std::filesystem::file_size(Special("measure")));
    for (const auto& [limit, lines] : {std::pair(0U, 0U), {1, 1}, {length, 1}, {length + 1, 2}}) {
      UTL_LOGStopSpecialLogs();
      UTL_LOGStartSpecialLog("limited", limit);
      for (int i = 0; i < 3; ++i) Print("line");
      EXPECT_EQ(std::filesystem::file_size(Special("limited")), lines * length) << limit;
    }
  });
}

TEST_F(LogSpecial, RestartSweepAndStop) {
  Run([] {
    const auto& list = utl_specialLogFileList;
    EXPECT_EQ(list.count, 1U);  // the placeholder
    Print("opens the process log");
    UTL_LOGStartSpecialLog("a", kLarge);
    Print("gone");
    UTL_LOGStartSpecialLog("a", kLarge);
    EXPECT_EQ(list.count, 1U);
    Print("kept");
    UTL_LOGStartSpecialLog("full", 0);
    UTL_LOGSetWriteToFile(false);
    Print("tests no size");
    EXPECT_FALSE(list.last->closed);
    UTL_LOGSetWriteToFile(true);
    Print("closes it");
    const int full = list.last->fd;
    UTL_LOGStartSpecialLog("b", kLarge);
    EXPECT_EQ(list.count, 2U);
    EXPECT_EQ(list.last->fd, full);  // the start gave it back
    close(full);
    Print("cannot read the size of b");
    EXPECT_TRUE(list.last->closed);
    UTL_LOGStartSpecialLog("full", 0);
    const int left = list.last->fd;
    Print("closes it");
    UTL_LOGStopSpecialLogs();
    EXPECT_EQ(list.count, 0U);
    EXPECT_EQ(fcntl(left, F_GETFD), FD_CLOEXEC);  // the stop did not
  });
  EXPECT_EQ(Messages(ReadFile(Special("a"))).at(0), " INFO  |kept");
}

TEST_F(LogSpecial, Failures) {
  std::filesystem::create_directories(Special("directory"));
  std::ofstream(Special("file")).close();
  const auto result = Run([] {
    UTL_LOGSetLevel(UTL_LOG_ERR, 0);  // means nothing to the facility's own lines
    UTL_LOGStartSpecialLog(nullptr, 1);
    UTL_LOGStartSpecialLog("directory", 1);  // an error without a code, met while the lock is held
    UTL_LOGStartSpecialLog("file/x/y", 1);
    faults::noMemory = true;
    UTL_LOGStartSpecialLog("a", 1);
    EXPECT_EQ(utl_specialLogFileList.count, 0U);
  });
  EXPECT_EQ(Messages(result.out),
            (Texts{"!!WRN!!|Converting unknown error code 21 to VPL_ERR_FAIL.",
                   "##ERR##|Failed to open special log file \"" + Special("directory") + "\": -9099",
                   "##ERR##|Failed to open special log file \"" + Special("file/x/y") + "\": -9025",
                   " ALWAYS|Now start writing to special log file \"" + Special("a") + "\"",
                   "##ERR##|Failed to allocate memory"}));
  EXPECT_EQ(result.err, "\nERROR: Failed to open special log file \"" + Special("directory") + "\"\n" +
                            "\nERROR: Failed to create dir \"file/x/y\"\n" +
                            "\nERROR: Failed to open special log file \"" + Special("file/x/y") + "\"\n" +
                            "\nERROR: Failed to create dir \"a\"\n");
}

}  // namespace
