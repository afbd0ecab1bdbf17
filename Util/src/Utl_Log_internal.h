/// @file
/// Internal, not installed: the state of the logging facility and the operations its rooms share.
///
/// Everything here is constant-initialised and trivially destroyed, so that logging works from a static
/// constructor that runs before ours and from a static destructor that runs after ours.
///
/// Lock order: utl_logLock before utl_shmMutex. Printers hold utl_logLock shared, whatever changes state
/// marked "lock" below holds it exclusive. State marked "atomic" is also read without the lock, always
/// with relaxed order: a switch publishes nothing but itself.
#pragma once

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "Utl_Log.h"
#include "Utl_LogRingLayout_internal.h"
#include "Utl_mutex.h"
#include "Utl_time.h"

constexpr std::uint32_t kLogSwitchSize = 524288;        // a file is switched once it holds this many bytes
constexpr const char* kLogSource = "Util/src/Utl_Log";  // the facility's own lines carry this source

/// One special log; made by UTL_LOGStartSpecialLog, owned by the list.
struct UTL_SpecialLogFile {
  std::uint32_t maxSize = 0;
  int fd = -1;
  char path[1024] = {};
  std::atomic<bool> closed{false};  // atomic: set by printers that hold the lock shared
  UTL_SpecialLogFile* previous = nullptr;
  UTL_SpecialLogFile* next = nullptr;
};

/// A list that needs neither constructor nor destructor at run time, which std::list does.
struct UTL_SpecialLogList {
  UTL_SpecialLogFile* first = nullptr;
  UTL_SpecialLogFile* last = nullptr;
  std::size_t count = 0;
};

extern std::atomic<bool> utl_logInit;
extern UTLSlimRWLock utl_logLock;
extern UTLMutex utl_shmMutex;
extern std::array<std::atomic<unsigned char>, 7> utl_logEnabled;  // atomic
extern std::atomic<bool> utl_writeToStdout;                       // atomic
extern std::atomic<bool> utl_writeToFile;                         // atomic
extern std::atomic<bool> utl_writeToSystemLog;                    // atomic
extern char utl_logProcessName[64];                               // lock
extern char utl_rootDir[518];                                     // lock
extern char utl_logProcessFilename[1024];                         // lock
extern int utl_logProcessFd;                                      // lock
extern int utl_logDay;                                            // lock
extern std::uint32_t utl_maxTotalLogSize;                         // lock
extern std::uint32_t utl_maxNumFiles;                             // lock
extern bool utl_setmax;                                           // lock
extern UTL_SpecialLogList utl_specialLogFileList;                 // lock
extern bool utl_enableInMemoryLogging;                            // lock
extern pluginsdk::ring::Header* utl_shmHeader;                    // lock; contents: lock and utl_shmMutex
extern int utl_shmFd;                                             // lock

namespace pluginsdk::log {

/// Marks the calling thread as inside the facility from the line before it takes utl_logLock to the line
/// after it gave it back, and keeps the caller's errno. Every public operation holds one. What a thread logs
/// while it is inside, such as a warning of a wrapper, takes no lock and goes straight to standard output.
class Inside {
 public:
  Inside() noexcept;
  ~Inside();
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

  int callersErrno() const { return m_errno; }

 private:
  int& m_depth;
  const int m_errno;
};

/// The two kinds of hold on utl_logLock. Whoever wants it exclusively goes first: the lock by itself prefers
/// readers, and threads that log all the time would keep it shared for ever. The lock may be taken before
/// the facility is initialised.
void LockShared() noexcept;
void UnlockShared() noexcept;
void LockExclusive() noexcept;
void UnlockExclusive() noexcept;

/// Holds for the length of a scope. Each also is an Inside.
class SharedHold {
 public:
  SharedHold() noexcept { LockShared(); }
  ~SharedHold() { UnlockShared(); }
  SharedHold(const SharedHold&) = delete;
  SharedHold& operator=(const SharedHold&) = delete;

  int callersErrno() const { return m_inside.callersErrno(); }

 private:
  Inside m_inside;
};

class ExclusiveHold {
 public:
  ExclusiveHold() noexcept { LockExclusive(); }
  ~ExclusiveHold() { UnlockExclusive(); }
  ExclusiveHold(const ExclusiveHold&) = delete;
  ExclusiveHold& operator=(const ExclusiveHold&) = delete;

 private:
  Inside m_inside;
};

/// Writes the three texts to standard error in one call. Not through stdio, whose lock a thread that waits
/// for the log may be holding.
void TellOnStderr(const char* before, const char* text, const char* after);

/// Writes to a file of the facility. What exceeds a limit on the size of files (RLIMIT_FSIZE) is lost; the
/// signal that would end the process is taken back.
void WriteToFile(int fd, const void* data, std::size_t length);

/// The descriptor itself, or a code, or, in the place of a standard one, a higher descriptor of the same
/// file. Where the host has closed standard output, the next file opened takes its number, and lines that are
/// meant for standard output would go into it: a second time into a log file, over the header of the ring.
/// Closing the low one gives up the record locks of the file.
int AboveStandard(int fd);

}  // namespace pluginsdk::log

// Operations between the rooms. Callers hold utl_logLock where a line does not say otherwise.

/// Initialises with default values and logs the NOTE. Called without the lock.
void UTL_checkInit();

/// Formats one line with the given time and writes it to all destinations; tests no level switch.
void UTL_log_vprint(UTL_LOGLevel level, const char* file, int line, const char* function,
                    const UTLTime_CalendarTime* now, const char* format, va_list arguments)
    __attribute__((format(printf, 6, 0)));

/// The facility's own messages: no level switch applies, the source is always kLogSource.
void UTL_log_print(UTL_LOGLevel level, const char* file, int line, const char* function,
                   const UTLTime_CalendarTime* now, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/// Pointer into `path` just past its last '/' or '\\'.
const char* UTL_String_GetFilenamePart(const char* path);

// Dated files (Utl_LogFiles.cpp).

/// Opens, switches and trims the process log when the day or the size asks for it. The hold on utl_logLock
/// is exclusive when `holdsExclusive`, else shared; after a switch the shared hold is another one, and
/// everything read under the former is stale.
void UTL_log_redirect(const UTLTime_CalendarTime* now, bool holdsExclusive);

/// Makes every directory named by a prefix of `path` that ends before a '/'. 0, -1 without memory, or the
/// code of the first directory that could not be made; one that exists counts as made.
int UTL_log_createPathEx(const char* path);

/// UTLFile_Open for a file of the facility, with permission bits 0666: never a standard descriptor.
int UTL_log_openFile(const char* path, int flags);

// Special logs (Utl_LogSpecial.cpp).

/// Copies one line, with its newline, to every open special log; closes those at their limit.
void UTL_log_writeSpecialLogs(const char* text, std::size_t length);

// In-memory log (Utl_LogRing.cpp).

/// Stores one line, with its newline, in the ring. Takes utl_shmMutex; in-memory logging is on.
void UTL_log_storeInRing(const char* text, std::size_t length);

/// Empties the ring into the process log. Exclusive hold; in-memory logging is on.
void UTL_logFlushInMemoryLogsHelper();

/// Lets go of the mapping that a forked child inherited, without touching what its parent stores there.
void UTL_log_dropRingAfterFork();
