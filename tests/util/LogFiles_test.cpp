// The dated files of the process log: names, first and last lines, switches, trimming, failures.

#include "LogFaults.h"
#include "LogTestSupport.h"
#include "Utl_Log.h"
#include "Utl_Log_internal.h"

namespace {

using namespace logtest;

constexpr UTLTime_CalendarTime kMorning = {2026, 1, 15, 9, 30, 0, 0, 42};
constexpr UTLTime_CalendarTime kNoon = {2026, 1, 15, 12, 0, 0, 7, 7654};
constexpr UTLTime_CalendarTime kNextDay = {2026, 1, 16, 0, 0, 0, 0, 0};
const std::string kMorningFile = "app.20260115_093000_000042.log";
const std::string kNoonFile = "app.20260115_120000_007654.log";
const std::string kNextDayFile = "app.20260116_000000_000000.log";

// What a line of this time does before it is written. Returns the name of the file that it goes to.
std::string Redirect(const UTLTime_CalendarTime& now) {
  const pluginsdk::log::ExclusiveHold hold;
  UTL_log_redirect(&now, true);
  return std::filesystem::path(utl_logProcessFilename).filename();
}

class LogFiles : public AppTest {};

TEST_F(LogFiles, FirstAndLastLinesOfAFile) {
  const auto result = Run([] {
    UTL_LOGSetLevel(UTL_LOG_ALWAYS, 0);  // means nothing to the facility's own lines
    UTL_LOGSetMax(10 * kLogSwitchSize);
    Redirect(kMorning);
    Redirect(kNextDay);
    dprintf(2, "%d", getpid());
  });
  const auto lines = [&](const std::string& name) {
    return Texts{" ALWAYS|Now writing to log file \"" + Path(name) + "\"", " ALWAYS|My pid: " + result.err,
                 " ALWAYS|Purging old logs \"" + m_series + "\""};
  };
  Texts morning = lines(kMorningFile);
  morning.push_back(" ALWAYS|Time to switch to new log file (" + Path(kNextDayFile) + "); closing this log.");
  const std::string text = ReadFile(Path(kMorningFile));
  EXPECT_EQ(text.substr(0, 23), "09:30:00.000042 ALWAYS|");
  EXPECT_EQ(Messages(text), morning);
  EXPECT_EQ(Messages(ReadFile(Path(kNextDayFile))), lines(kNextDayFile));
}

TEST_F(LogFiles, Switching) {
  const struct {
    const char* name;
    unsigned limit;
    off_t size;
    UTLTime_CalendarTime now;
    std::string file;
  } rows[] = {
      {"one byte less", 4 * kLogSwitchSize, 524287, kNoon, kMorningFile},
      {"full", 4 * kLogSwitchSize, 524288, kNoon, kNoonFile},
      {"full, without a limit", 0, 524288, kNoon, kMorningFile},
      {"the next day", 0, 0, kNextDay, kNextDayFile},
      {"the same day of another month", 1, 0, {2026, 3, 15, 1, 2, 3, 4, 4005}, kMorningFile},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Run([&row] {
      UTL_LOGSetMax(row.limit);
      Redirect(kMorning);
      ASSERT_EQ(ftruncate(utl_logProcessFd, row.size), 0);
      EXPECT_EQ(Redirect(row.now), row.file);
    });
    std::filesystem::remove_all(m_series);
  }
}

// A thread that waited for the hold with a time of yesterday finds the file of today.
TEST_F(LogFiles, NoSwitchBackOverMidnight) {
  Run([] {
    UTLTime_CalendarTime now = {};
    UTLTime_GetCalendarTimeLocal(&now);
    const std::string today = Redirect(now);
    EXPECT_EQ(Redirect(now.day == kNextDay.day ? kMorning : kNextDay), today);
  });
}

TEST_F(LogFiles, Trimming) {
  const Names two = {"app.1", "app.2"};
  const Names three = {"app.1", "app.2", "app.3"};
  const Names four = {"app.1", "app.2", "app.3", "app.4"};
  const struct {
    const char* name;
    std::vector<unsigned> limits;  // set one after the other
    Names old;                     // each of this size
    off_t size;
    Names left;  // beside the new file
  } rows[] = {
      {"default, within the total", {}, three, 1000, {"app.2", "app.3"}},
      {"default, over the total", {}, three, 307200, {}},
      {"sizes count in 32 bits", {}, two, off_t{1} << 32, {"app.2"}},
      {"one file", {1000000}, three, 1000, {}},
      {"the smallest limit", {1}, three, 1000, {}},
      {"a byte less than two files", {2 * kLogSwitchSize - 1}, three, 9, {}},
      {"two files", {2 * kLogSwitchSize}, three, 9, {"app.3"}},
      {"no limit, three files", {0}, two, 307200, two},
      {"no limit, more", {0}, four, 307200, {"app.2", "app.3", "app.4"}},
      {"no limit after a limit", {100, 0}, four, 9, {"app.3", "app.4"}},
      {"all that begins with the name", {1}, {"app", "apple", "ap", "my.app"}, 9, {"ap", "my.app"}},
      {"files of the future", {1}, {"app.8", "app.9"}, 9, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::create_directories(Path("app.directory"));
    std::filesystem::create_symlink("/nowhere", Path("app.link"));
    Texts deleted;
    for (const std::string& name : row.old) {
      std::ofstream(Path(name)).close();
      std::filesystem::resize_file(Path(name), static_cast<std::uintmax_t>(row.size));
      // The oldest first.
      if (row.left.count(name) == 0) deleted.push_back(" ALWAYS|Delete \"" + Path(name) + "\": 0");
    }
    const auto result = Run([&row] {
      for (const unsigned limit : row.limits) UTL_LOGSetMax(limit);
      Redirect(kMorning);
    });
    Names left = {kMorningFile, "app.directory", "app.link"};
    left.insert(row.left.begin(), row.left.end());
    EXPECT_EQ(NamesIn(m_series), left);
    const Texts messages = Messages(result.out);
    EXPECT_EQ(Texts(messages.begin() + 3, messages.end()), deleted);
    std::filesystem::remove_all(m_series);
  }
}

TEST_F(LogFiles, FileThatCannotBeOpenedOrMeasured) {
  std::ofstream(m_root.path() + "/logs").close();  // in the place of the directory
  const auto result = Run([this] {
    Redirect(kMorning);
    std::filesystem::remove(m_root.path() + "/logs");
    EXPECT_EQ(Redirect(kNoon), kMorningFile);  // not tried again
    Redirect(kNextDay);
    close(utl_logProcessFd);
    EXPECT_EQ(Redirect(kMorning), kMorningFile);
  });
  EXPECT_EQ(result.err, "\nERROR: Failed to create parent dir for \"" + Path(kMorningFile) +
                            "\"\n\nERROR: Failed to open log file \"" + Path(kMorningFile) + "\"\n");
  const Texts messages = Messages(result.out);
  EXPECT_EQ(messages.at(0), "##ERR##|Failed to open log file \"" + Path(kMorningFile) + "\"");
  EXPECT_EQ(messages.at(5), "!!WRN!!|Failed to stat (" + Path(kNextDayFile) + ").");
  EXPECT_EQ(NamesIn(m_series), Names{kMorningFile});
}

TEST_F(LogFiles, ParentDirectories) {
  const auto make = [this](const char* path) { return UTL_log_createPathEx((m_root.path() + path).c_str()); };
  EXPECT_EQ(make("/a/b/c") + make("/a//d/") + UTL_log_createPathEx("/"), 0);  // one that exists is no failure
  EXPECT_EQ(NamesIn(m_root.path() + "/a"), (Names{"b", "d"}));
  EXPECT_EQ(NamesIn(m_root.path() + "/a/b"), Names{});
  Run([] {
    faults::noMemory = true;
    EXPECT_EQ(UTL_log_createPathEx("a/b"), -1);
  });
}

}  // namespace
