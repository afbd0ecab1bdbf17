/// @file
/// The process log: a series of dated files, switched and trimmed while lines are printed.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Utl_Log.h"
#include "Utl_Log_internal.h"
#include "Utl_file.h"
#include "vpl__error.h"

using pluginsdk::log::ExclusiveHold;
using pluginsdk::log::TellOnStderr;

namespace {

constexpr const char* kRedirect = "UTL_log_redirect";  // the function that the lines of a switch name

/// A line about a switch, with the time of the line that caused it.
template <typename... Arguments>
void Tell(UTL_LOGLevel level, int line, const UTLTime_CalendarTime& now, const char* format,
          Arguments... arguments) {
  UTL_log_print(level, kLogSource, line, kRedirect, &now, format, arguments...);
}

/// Trades the shared hold of a printing thread for the exclusive one until the end of the scope.
class Trade {
 public:
  explicit Trade(bool holdsExclusive) : m_holdsExclusive(holdsExclusive) {
    if (!m_holdsExclusive) {
      pluginsdk::log::UnlockShared();
      pluginsdk::log::LockExclusive();
    }
  }
  ~Trade() {
    if (!m_holdsExclusive) {
      pluginsdk::log::UnlockExclusive();
      pluginsdk::log::LockShared();
    }
  }
  Trade(const Trade&) = delete;
  Trade& operator=(const Trade&) = delete;

 private:
  const bool m_holdsExclusive;
};

bool IsFull(std::int64_t size) {
  return size >= kLogSwitchSize && utl_maxTotalLogSize != 0;
}

bool IsDue(const UTLTime_CalendarTime& now, std::int64_t size) {
  return now.day != utl_logDay || IsFull(size);
}

/// Whether `now` was read before a midnight that another thread has switched for already. Switching for it
/// would go back to the day before, and the next line forth again.
bool IsOutdated(const UTLTime_CalendarTime& now) {
  UTLTime_CalendarTime clock = {};
  UTLTime_GetCalendarTimeLocal(&clock);
  return clock.day == utl_logDay &&
         std::tie(now.year, now.month, now.day) < std::tie(clock.year, clock.month, clock.day);
}

/// The size of the current file, 0 when there is none or it cannot be read.
std::int64_t FileSize() {
  UTLFS_stat_t status = {};
  if (!UTLFile_IsValidHandle(utl_logProcessFd) || UTLFS_FStat(utl_logProcessFd, &status) != VPL_OK) {
    return 0;
  }
  return status.size;
}

/// The same under the exclusive hold, where the size seen before serves when the file's own cannot be read.
std::int64_t FileSizeOr(std::int64_t sizeBefore, const UTLTime_CalendarTime& now) {
  if (!UTLFile_IsValidHandle(utl_logProcessFd)) {
    return 0;
  }
  UTLFS_stat_t status = {};
  if (UTLFS_FStat(utl_logProcessFd, &status) != VPL_OK) {
    Tell(UTL_LOG_WRN, __LINE__, now, "Failed to stat (%s).", utl_logProcessFilename);
    return sizeBefore;
  }
  return status.size;
}

/// Ends the current file and begins one named after `now`.
void OpenNext(const UTLTime_CalendarTime& now) {
  std::snprintf(utl_logProcessFilename, sizeof utl_logProcessFilename,
                "%s/%s/%s.%d%02d%02d_%02d%02d%02d_%06d.log", utl_rootDir, utl_logProcessName,
                utl_logProcessName, now.year, now.month, now.day, now.hour, now.min, now.sec, now.usec);
  if (UTL_log_createPathEx(utl_logProcessFilename) != VPL_OK) {
    TellOnStderr("\nERROR: Failed to create parent dir for \"", utl_logProcessFilename, "\"\n");
  }
  if (UTLFile_IsValidHandle(utl_logProcessFd)) {
    Tell(UTL_LOG_ALWAYS, __LINE__, now, "Time to switch to new log file (%s); closing this log.",
         utl_logProcessFilename);
    UTLFile_Close(utl_logProcessFd);
    utl_logProcessFd = -1;
  }
  const int fd = UTL_log_openFile(utl_logProcessFilename, O_RDWR | O_CREAT | O_APPEND);
  utl_logDay = now.day;  // of a failed open too: it is not tried again at every line of the day
  if (!UTLFile_IsValidHandle(fd)) {
    TellOnStderr("\nERROR: Failed to open log file \"", utl_logProcessFilename, "\"\n");
    Tell(UTL_LOG_ERR, __LINE__, now, "Failed to open log file \"%s\"", utl_logProcessFilename);
    return;
  }
  utl_logProcessFd = fd;
  Tell(UTL_LOG_ALWAYS, __LINE__, now, "Now writing to log file \"%s\"", utl_logProcessFilename);
  Tell(UTL_LOG_ALWAYS, __LINE__, now, "My pid: %li", static_cast<long>(getpid()));
}

/// The files of the series, the current one first, then from the newest to the oldest.
struct Series {
  std::vector<std::string> paths;
  bool isOver = false;  ///< their total exceeds the limit

  void Add(std::string path) {
    UTLFS_stat_t status = {};
    if (!isOver && UTLFS_Stat(path.c_str(), &status) == VPL_OK) {
      m_total += static_cast<std::uint32_t>(status.size);
      isOver = utl_maxTotalLogSize != 0 && m_total > utl_maxTotalLogSize;
    }
    paths.push_back(std::move(path));
  }

 private:
  std::uint64_t m_total = 0;
};

class Directory {
 public:
  explicit Directory(const std::string& path) : m_isOpen(UTLFS_Opendir(path.c_str(), &m_stream) == VPL_OK) {}
  ~Directory() { UTLFS_Closedir(&m_stream); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  bool IsOpen() const { return m_isOpen; }
  bool Read(UTLFS_dirent_t& entry) { return UTLFS_Readdir(&m_stream, &entry) == VPL_OK; }

 private:
  UTLFS_dir__t m_stream = {};
  const bool m_isOpen;
};

/// Some file systems do not tell the types of their entries, which then come as "other"; trimming would
/// never find a file there. The file itself is asked in that case; a symbolic link stays one.
bool IsRegular(const UTLFS_dirent_t& entry, const std::string& path) {
  UTLFS_stat_t status = {};
  return entry.type == UTLFS_TYPE_FILE ||
         (entry.type == UTLFS_TYPE_OTHER && UTLFS_Stat(path.c_str(), &status) == VPL_OK &&
          status.type == UTLFS_TYPE_FILE);
}

Series ListSeries(const std::string& directory) {
  Series series;
  Directory stream(directory);
  UTLFS_dirent_t entry = {};
  const std::size_t nameLength = std::strlen(utl_logProcessName);
  while (stream.IsOpen() && stream.Read(entry)) {
    std::string path = directory + "/" + entry.name;
    if (std::strncmp(entry.name, utl_logProcessName, nameLength) == 0 && IsRegular(entry, path)) {
      series.Add(std::move(path));
    }
  }
  // Names sort by time unless the clock was set back. The current file counts as the newest in any case.
  std::sort(series.paths.begin(), series.paths.end(), [](const std::string& a, const std::string& b) {
    const bool isCurrent = b == utl_logProcessFilename;
    return !isCurrent && (a == utl_logProcessFilename || a > b);
  });
  return series;
}

/// Deletes the oldest file, or all beyond those to keep once the limits say so.
void DeleteOldest(const Series& series, const UTLTime_CalendarTime& now) {
  for (std::size_t index = series.paths.size(); index > utl_maxNumFiles; --index) {
    const char* const path = series.paths[index - 1].c_str();
    const int code = UTLFile_Delete(path);
    Tell(UTL_LOG_ALWAYS, __LINE__, now, "Delete \"%s\": %d", path, code);
    if (!utl_setmax && !series.isOver) {
      return;
    }
  }
}

void TrimSeries(const UTLTime_CalendarTime& now) {
  char directory[sizeof utl_rootDir + sizeof utl_logProcessName];
  std::snprintf(directory, sizeof directory, "%s/%s", utl_rootDir, utl_logProcessName);
  Tell(UTL_LOG_ALWAYS, __LINE__, now, "Purging old logs \"%s\"", directory);
  UTLFS_stat_t status = {};
  if (!UTLFile_IsValidHandle(utl_logProcessFd) || UTLFS_FStat(utl_logProcessFd, &status) != VPL_OK) {
    return;
  }
  try {
    DeleteOldest(ListSeries(directory), now);
  } catch (const std::exception&) {
    // No memory for the list: the next switch trims. Logging does not throw into its caller.
  }
}

}  // namespace

void UTL_LOGSetMax(unsigned int maxTotalSize) {
  if (!utl_logInit.load(std::memory_order_acquire)) {
    return;
  }
  const ExclusiveHold hold;
  if (maxTotalSize == 0) {
    utl_maxTotalLogSize = 0;
    utl_maxNumFiles = 3;
    return;  // utl_setmax stays: an earlier limit goes on trimming to three files at once
  }
  utl_maxTotalLogSize = std::max(maxTotalSize, kLogSwitchSize);
  utl_maxNumFiles = utl_maxTotalLogSize / kLogSwitchSize;
  utl_setmax = true;
}

void UTL_log_redirect(const UTLTime_CalendarTime* now, bool holdsExclusive) {
  if (!utl_logInit.load(std::memory_order_relaxed) || utl_rootDir[0] == '\0') {
    return;
  }
  const std::int64_t size = FileSize();
  if (!IsDue(*now, size)) {
    return;
  }
  const Trade trade(holdsExclusive);
  // Between the two holds another thread may have turned in-memory logging on, which keeps the file as it is.
  if (!holdsExclusive && utl_enableInMemoryLogging) {
    return;
  }
  const std::int64_t sizeNow = FileSizeOr(size, *now);
  if (IsDue(*now, sizeNow) && (IsFull(sizeNow) || !IsOutdated(*now))) {
    OpenNext(*now);
    TrimSeries(*now);
  }
}

int UTL_log_createPathEx(const char* path) {
  const std::size_t length = std::strlen(path);
  const std::unique_ptr<char[]> copy(new (std::nothrow) char[length + 1]);
  if (copy == nullptr) {
    return -1;
  }
  std::memcpy(copy.get(), path, length + 1);
  // From the second character on: the root is no directory to make.
  for (std::size_t i = 1; i < length; ++i) {
    if (copy[i] != '/') {
      continue;
    }
    copy[i] = '\0';
    const int code = UTLDir_Create(copy.get(), 0755);
    if (code != VPL_OK && code != VPL_ERR_EXIST) {
      return code;
    }
    copy[i] = '/';
  }
  return VPL_OK;
}

int UTL_log_openFile(const char* path, int flags) {
  const int fd = UTLFile_Open(path, flags, 0666);
  const int moved = pluginsdk::log::AboveStandard(fd);
  if (moved != fd && UTLFile_IsValidHandle(moved)) {
    struct flock lock {};  // once more, over the whole file
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    static_cast<void>(fcntl(moved, F_SETLKW, &lock));
  }
  return moved;
}
