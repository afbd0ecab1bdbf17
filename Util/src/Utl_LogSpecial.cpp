/// @file
/// Special logs: bounded copies of all lines in files of their own.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "Utl_Log.h"
#include "Utl_Log_internal.h"
#include "Utl_file.h"
#include "vpl__error.h"

using pluginsdk::log::ExclusiveHold;
using pluginsdk::log::TellOnStderr;

namespace {

constexpr const char* kStart = "UTL_LOGStartSpecialLog";

void Append(UTL_SpecialLogFile* entry) {
  UTL_SpecialLogList& list = utl_specialLogFileList;
  entry->previous = list.last;
  (list.last == nullptr ? list.first : list.last->next) = entry;
  list.last = entry;
  ++list.count;
}

/// Unlinks and frees the entry, and returns the next one. The descriptor is the caller's concern.
UTL_SpecialLogFile* Remove(UTL_SpecialLogFile* entry) {
  UTL_SpecialLogList& list = utl_specialLogFileList;
  UTL_SpecialLogFile* const next = entry->next;
  (entry->previous == nullptr ? list.first : entry->previous->next) = next;
  (next == nullptr ? list.last : next->previous) = entry->previous;
  --list.count;
  delete entry;
  return next;
}

bool IsClosed(const UTL_SpecialLogFile& entry) {
  return entry.closed.load(std::memory_order_relaxed);
}

/// Clears away what is finished, and a log that is about to be started again.
void Sweep(const char* path) {
  for (UTL_SpecialLogFile* entry = utl_specialLogFileList.first; entry != nullptr;) {
    if (!IsClosed(*entry) && std::strcmp(entry->path, path) != 0) {
      entry = entry->next;
      continue;
    }
    if (UTLFile_IsValidHandle(entry->fd)) {  // the placeholder has none
      UTLFile_Close(entry->fd);
    }
    entry = Remove(entry);
  }
}

/// Whether a line may still go to this log. One whose size cannot be read is as finished as a full one.
bool HasRoom(const UTL_SpecialLogFile& entry) {
  UTLFS_stat_t status = {};
  return UTLFS_FStat(entry.fd, &status) == VPL_OK && status.size < entry.maxSize;
}

void AddOpened(int fd, const char* path, unsigned int maxSize, const UTLTime_CalendarTime& now) {
  // Before the entry is in the list, so that its own file does not begin with this line.
  UTL_log_print(UTL_LOG_ALWAYS, kLogSource, __LINE__, kStart, &now,
                "Now start writing to special log file \"%s\"", path);
  auto* const entry = new (std::nothrow) UTL_SpecialLogFile;
  if (entry == nullptr) {
    UTL_log_print(UTL_LOG_ERR, kLogSource, __LINE__, kStart, &now, "Failed to allocate memory");
    UTLFile_Close(fd);
    return;
  }
  entry->maxSize = maxSize;
  entry->fd = fd;
  std::snprintf(entry->path, sizeof entry->path, "%s", path);
  Append(entry);
}

}  // namespace

void UTL_LOGStartSpecialLog(const char* name, unsigned int maxSize) {
  if (!utl_logInit.load(std::memory_order_acquire) || name == nullptr) {
    return;
  }
  const ExclusiveHold hold;
  UTLTime_CalendarTime now = {};
  UTLTime_GetCalendarTimeLocal(&now);
  char path[sizeof UTL_SpecialLogFile::path];
  std::snprintf(path, sizeof path, "%s/%s/special_logs/%s", utl_rootDir, utl_logProcessName, name);
  Sweep(path);
  if (UTL_log_createPathEx(path) != VPL_OK) {
    TellOnStderr("\nERROR: Failed to create dir \"", name, "\"\n");
  }
  const int fd = UTL_log_openFile(path, O_RDWR | O_CREAT | O_TRUNC);
  if (UTLFile_IsValidHandle(fd)) {
    AddOpened(fd, path, maxSize, now);
    return;
  }
  TellOnStderr("\nERROR: Failed to open special log file \"", path, "\"\n");
  UTL_log_print(UTL_LOG_ERR, kLogSource, __LINE__, kStart, &now, "Failed to open special log file \"%s\": %d",
                path, fd);
}

void UTL_LOGStopSpecialLogs() {
  if (!utl_logInit.load(std::memory_order_acquire)) {
    return;
  }
  const ExclusiveHold hold;
  for (UTL_SpecialLogFile* entry = utl_specialLogFileList.first; entry != nullptr; entry = Remove(entry)) {
    // The descriptor of a finished log stays open for good; only a start gives it back.
    if (!IsClosed(*entry)) {
      UTLFile_Close(entry->fd);
    }
  }
}

void UTL_log_writeSpecialLogs(const char* text, std::size_t length) {
  for (UTL_SpecialLogFile* entry = utl_specialLogFileList.first; entry != nullptr; entry = entry->next) {
    if (IsClosed(*entry)) {
      continue;
    }
    if (!HasRoom(*entry)) {
      // Relaxed: a printer that misses it tests the size once more, with the same result.
      entry->closed.store(true, std::memory_order_relaxed);
      continue;
    }
    pluginsdk::log::WriteToFile(entry->fd, text, length);
    fsync(entry->fd);
  }
}
