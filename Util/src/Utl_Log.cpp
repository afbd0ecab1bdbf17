#include "Utl_Log.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <type_traits>

#include "Utl_LogLine_internal.h"
#include "Utl_LogSignal_internal.h"
#include "Utl_Log_internal.h"
#include "Utl_Warn_internal.h"
#include "Utl_file.h"
#include "Utl_thread.h"
#include "vpl__error.h"

using pluginsdk::log::ExclusiveHold;
using pluginsdk::log::Inside;
using pluginsdk::log::LineText;
using pluginsdk::log::LongLine;
using pluginsdk::log::Position;
using pluginsdk::log::SharedHold;
using pluginsdk::log::SignalBlock;
using pluginsdk::log::ThreadText;

std::atomic<bool> utl_logInit{false};
UTLSlimRWLock utl_logLock = {PTHREAD_RWLOCK_INITIALIZER};
UTLMutex utl_shmMutex = {};
std::array<std::atomic<unsigned char>, 7> utl_logEnabled = {{{0}, {0}, {1}, {1}, {1}, {1}, {1}}};
std::atomic<bool> utl_writeToStdout{true};
std::atomic<bool> utl_writeToFile{true};
std::atomic<bool> utl_writeToSystemLog{true};
char utl_logProcessName[64] = "null";
char utl_rootDir[518] = "";
char utl_logProcessFilename[1024] = "";
int utl_logProcessFd = -1;
int utl_logDay = -1;
std::uint32_t utl_maxTotalLogSize = kLogSwitchSize;
std::uint32_t utl_maxNumFiles = 1;
bool utl_setmax = false;
UTL_SpecialLogList utl_specialLogFileList;
bool utl_enableInMemoryLogging = false;
pluginsdk::ring::Header* utl_shmHeader = nullptr;
int utl_shmFd = -1;

namespace {

// Whoever changes the facility passes here first, initialisation included; see LockShared.
std::mutex turnstile;
std::atomic<int> exclusiveWanted{0};
static_assert(std::is_trivially_destructible_v<std::mutex>, "logging goes on after static destructors");

// What the C library converts local time by. Compared, never followed.
struct Zone {
  const char* standardName;
  const char* summerName;
  long offset;
  int hasSummer;

  bool operator==(const Zone& other) const {
    return standardName == other.standardName && summerName == other.summerName && offset == other.offset &&
           hasSummer == other.hasSummer;
  }
};

// All that a thread keeps between its lines, zeroed when it starts.
struct PerThread {
  int depth;                      // how many times the thread is inside the facility
  ThreadText thread;              // empty until it is asked for
  bool isConverted;               // whether the following belong together
  std::time_t second;             // the second last converted
  Zone zone;                      // by this zone
  UTLTime_CalendarTime calendar;  // to this, without the part below the second
};
thread_local PerThread perThread;

// Finding it is a call into the loader wherever it is done. Not inlined, so that it is done where this is
// called and not, by the optimiser, at every use of the result.
[[gnu::noinline]] PerThread& ThisThread() {
  return perThread;
}

// A negative level, too, comes out above all others.
constexpr std::size_t Index(UTL_LOGLevel level) {
  return static_cast<std::size_t>(level);
}

bool IsOn(UTL_LOGLevel level) {
  return Index(level) < utl_logEnabled.size() &&
         utl_logEnabled[Index(level)].load(std::memory_order_relaxed) != 0;
}

// The C library stores these under a lock of its own that nobody else can take, hence the atomic reads.
Zone ReadZone() {
  return {__atomic_load_n(&tzname[0], __ATOMIC_RELAXED), __atomic_load_n(&tzname[1], __ATOMIC_RELAXED),
          __atomic_load_n(&timezone, __ATOMIC_RELAXED), __atomic_load_n(&daylight, __ATOMIC_RELAXED)};
}

void ConvertSecond(PerThread& self, std::time_t second) {
  const int callersErrno = errno;
  const Zone before = ReadZone();
  std::tm local{};
  localtime_r(&second, &local);
  errno = callersErrno;
  self.calendar = {
      local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, 0, 0};
  self.second = second;
  self.zone = ReadZone();
  // A zone that changed meanwhile may have been read by halves: such a conversion serves one line only.
  self.isConverted = before == self.zone;
}

// The present time, as UTLTime_GetCalendarTimeLocal tells it. Converting costs more than the rest of a line,
// so a second that the thread has converted by the present zone is not converted again.
UTLTime_CalendarTime ReadClock(PerThread& self) {
  timeval clock{};
  gettimeofday(&clock, nullptr);
  if (!self.isConverted || clock.tv_sec != self.second || !(ReadZone() == self.zone)) {
    ConvertSecond(self, clock.tv_sec);
  }
  UTLTime_CalendarTime now = self.calendar;
  now.msec = static_cast<std::int32_t>(clock.tv_usec / 1000);
  now.usec = static_cast<std::int32_t>(clock.tv_usec);
  return now;
}

const ThreadText& ThreadOf(PerThread& self) {
  ThreadText& thread = self.thread;
  if (thread.length == 0) {
    char* const end =
        std::to_chars(thread.digits, thread.digits + sizeof thread.digits, UTLDetachableThread_Self()).ptr;
    thread.length = static_cast<unsigned char>(end - thread.digits);
  }
  return thread;
}

std::atomic<int> stdoutLinesLeft{0};  // until standard output is looked at again

// Writes without raising SIGPIPE by the kernel's own flag for that, which spares the two calls that change
// the signal mask; together they cost more than a short write. False where there is no such flag (before
// Linux 6.18) or no such call, and then nothing was written.
bool WriteWithNoSignalFlag(const LineText& line) {
  constexpr int kNoSignal = 0x100;            // RWF_NOSIGNAL, which older headers do not have
  static std::atomic<bool> isMissing{false};  // relaxed: at worst another thread finds out by itself
  if (isMissing.load(std::memory_order_relaxed)) {
    return false;
  }
  const iovec part = {const_cast<char*>(line.data()), line.size()};
  if (pwritev2(STDOUT_FILENO, &part, 1, -1, kNoSignal) >= 0) {
    return true;
  }
  const int error = errno;
  // A filter of system calls answers EPERM or ENOSYS. What is meant for this line alone comes again below.
  if (error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == EPERM) {
    isMissing.store(true, std::memory_order_relaxed);
    return false;
  }
  VPLError_XlatErrno(error);  // warns of one that it does not know, as UTLFile_Write does
  return true;
}

// Whether a limit on file sizes can apply to standard output, for whose signal the kernel has no such flag.
// A host may redirect the descriptor at any time; asking at each line would cost half as much as the line,
// and sixteen short ones stay below any sensible limit.
bool StdoutIsFile() {
  constexpr int kLinesBetween = 16;
  static std::atomic<bool> isFile{true};  // relaxed, both: at worst some thread asks once more or later
  int left = stdoutLinesLeft.load(std::memory_order_relaxed);
  if (left == 0) {
    struct stat status {};
    isFile.store(fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode), std::memory_order_relaxed);
    left = kLinesBetween;
  }
  stdoutLinesLeft.store(left - 1, std::memory_order_relaxed);
  return isFile.load(std::memory_order_relaxed);
}

void WriteToStdout(const LineText& line) {
  if (StdoutIsFile() || !WriteWithNoSignalFlag(line)) {
    pluginsdk::log::WriteToFile(STDOUT_FILENO, line.data(), line.size());
  }
}

void WriteToProcessLog(const LineText& line) {
  if (!UTLFile_IsValidHandle(utl_logProcessFd)) {
    return;
  }
  if (utl_enableInMemoryLogging) {
    UTL_log_storeInRing(line.data(), line.size());
    return;
  }
  pluginsdk::log::WriteToFile(utl_logProcessFd, line.data(), line.size());
  fsync(utl_logProcessFd);
}

void WriteLine(PerThread& self, const Position& position, const UTLTime_CalendarTime& now, const char* format,
               va_list arguments) __attribute__((format(printf, 4, 0)));
void WriteLine(PerThread& self, const Position& position, const UTLTime_CalendarTime& now, const char* format,
               va_list arguments) {
  const LineText line(position, now, ThreadOf(self), LongLine::kWhole, format, arguments);
  if (utl_writeToStdout.load(std::memory_order_relaxed)) {
    WriteToStdout(line);
  }
  if (utl_writeToFile.load(std::memory_order_relaxed)) {
    // The placeholder can only be the first of the list; most programs have nothing behind it.
    const UTL_SpecialLogFile* const newest = utl_specialLogFileList.last;
    if (newest != nullptr && newest->fd >= 0) {
      UTL_log_writeSpecialLogs(line.data(), line.size());
    }
    WriteToProcessLog(line);
  }
}

// For a thread that is inside already: it may hold any of the locks and be in the middle of a line. Errors of
// this write are not even translated, or they would come back here.
void WriteAside(PerThread& self, const Position& position, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));
void WriteAside(PerThread& self, const Position& position, const char* format, va_list arguments) {
  const Inside keepsErrno;
  const LineText line(position, ReadClock(self), ThreadOf(self), LongLine::kCut, format, arguments);
  const SignalBlock block;
  const bool toStdout = utl_writeToStdout.load(std::memory_order_relaxed);
  if (write(toStdout ? STDOUT_FILENO : STDERR_FILENO, line.data(), line.size()) == -1) {
    block.Consume();
  }
}

// The printing of a level that is on.
void Print(const Position& position, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
void Print(const Position& position, const char* format, va_list arguments) {
  PerThread& self = ThisThread();
  if (self.depth != 0) {
    WriteAside(self, position, format, arguments);
    return;
  }
  if (!utl_logInit.load(std::memory_order_acquire)) {
    UTL_checkInit();
  }
  const SharedHold hold;
  const UTLTime_CalendarTime now = ReadClock(self);
  if (!utl_enableInMemoryLogging) {
    UTL_log_redirect(&now, false);
    errno = hold.callersErrno();  // which the message may print
  }
  WriteLine(self, position, now, format, arguments);
}

// The locks around a fork are taken so that the child finds the state whole. A shared hold does: it keeps
// changes out, and does not wait for other threads' lines. A thread that is inside has them its own way.
void BeforeFork() {
  if (ThisThread().depth != 0) {
    return;
  }
  turnstile.lock();
  if (utl_logInit.load(std::memory_order_relaxed)) {  // nobody initialises while the turnstile is held
    UTLSlimRWLock_LockRead(&utl_logLock);
    UTLMutex_Lock(&utl_shmMutex);
  }
}

void AfterForkInParent() {
  if (ThisThread().depth != 0) {
    return;
  }
  if (utl_logInit.load(std::memory_order_relaxed)) {
    UTLMutex_Unlock(&utl_shmMutex);
    UTLSlimRWLock_UnlockRead(&utl_logLock);
  }
  turnstile.unlock();
}

void AfterForkInChild() {
  ThisThread().thread.length = 0;
  stdoutLinesLeft.store(0, std::memory_order_relaxed);
  if (ThisThread().depth != 0) {
    return;
  }
  if (utl_logInit.load(std::memory_order_relaxed)) {
    UTLMutex_Unlock(&utl_shmMutex);
    // Threads that were printing are not here to give back their holds, so the lock begins anew.
    UTLSlimRWLock_Init(&utl_logLock);
  }
  UTL_log_dropRingAfterFork();
  exclusiveWanted.store(0, std::memory_order_relaxed);
  turnstile.unlock();
}

void RegisterForkHandlers() {
  static std::atomic<bool> done{false};  // relaxed: it guards nothing but the call
  if (!done.exchange(true, std::memory_order_relaxed)) {
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
  }
}

// A closed entry at the head of the list. The first start of a special log sweeps it away.
void AppendPlaceholder() {
  auto* const entry = new (std::nothrow) UTL_SpecialLogFile;
  if (entry != nullptr) {
    entry->closed = true;
    utl_specialLogFileList.first = entry;
    utl_specialLogFileList.last = entry;
    utl_specialLogFileList.count = 1;
  }
}

// False when the facility is initialised already, perhaps by a thread that did so at the same moment.
bool Initialise(const char* processPath, const char* logRoot) {
  const Inside inside;
  RegisterForkHandlers();  // before the turnstile, or a fork in between would find it locked for ever
  const std::lock_guard<std::mutex> single(turnstile);
  if (utl_logInit.load(std::memory_order_relaxed)) {
    return false;
  }
  UTLSlimRWLock_Init(&utl_logLock);
  UTLMutex_Init(&utl_shmMutex);
  const char* const name = processPath == nullptr ? "null" : UTL_String_GetFilenamePart(processPath);
  UTLSlimRWLock_LockWrite(&utl_logLock);
  std::snprintf(utl_logProcessName, sizeof utl_logProcessName, "%s", name);
  if (logRoot != nullptr) {
    std::snprintf(utl_rootDir, sizeof utl_rootDir, "%s/logs", logRoot);
  }
  utl_logDay = -1;
  AppendPlaceholder();
  utl_logInit.store(true, std::memory_order_release);  // from here on other threads use what stands above
  UTLSlimRWLock_UnlockWrite(&utl_logLock);
  return true;
}

}  // namespace

namespace pluginsdk::log {

Inside::Inside() noexcept : m_depth(ThisThread().depth), m_errno(errno) {
  ++m_depth;
}

Inside::~Inside() {
  --m_depth;
  errno = m_errno;
}

void LockShared() noexcept {
  // Relaxed: a printer that sees this too late only goes ahead of the change once more.
  if (exclusiveWanted.load(std::memory_order_relaxed) != 0) {
    const std::lock_guard<std::mutex> behind(turnstile);
  }
  UTLSlimRWLock_LockRead(&utl_logLock);
}

void UnlockShared() noexcept {
  UTLSlimRWLock_UnlockRead(&utl_logLock);
}

void LockExclusive() noexcept {
  RegisterForkHandlers();  // of a ring that is turned on before initialisation, too
  exclusiveWanted.fetch_add(1, std::memory_order_relaxed);
  turnstile.lock();
  UTLSlimRWLock_LockWrite(&utl_logLock);
}

void UnlockExclusive() noexcept {
  UTLSlimRWLock_UnlockWrite(&utl_logLock);
  exclusiveWanted.fetch_sub(1, std::memory_order_relaxed);
  turnstile.unlock();
}

void TellOnStderr(const char* before, const char* text, const char* after) {
  iovec parts[3];
  std::size_t count = 0;
  for (const char* part : {before, text, after}) {
    parts[count++] = {const_cast<char*>(part), std::strlen(part)};
  }
  const SignalBlock block;
  if (writev(STDERR_FILENO, parts, static_cast<int>(count)) == -1) {
    block.Consume();
  }
}

void WriteToFile(int fd, const void* data, std::size_t length) {
  const SignalBlock block;
  if (UTLFile_Write(fd, data, length) < 0) {
    block.Consume();
  }
}

int AboveStandard(int fd) {
  if (!UTLFile_IsValidHandle(fd) || fd > STDERR_FILENO) {
    return fd;
  }
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  UTL_Close(fd);
  return moved == -1 ? VPLError_XlatErrno(error) : moved;
}

}  // namespace pluginsdk::log

void UTL_LOGInit(const char* processPath, const char* logRoot) {
  if (utl_logInit.load(std::memory_order_acquire) || !Initialise(processPath, logRoot)) {
    UTL_LOGPrint(UTL_LOG_WRN, kLogSource, __LINE__, "UTL_LOGInit",
                 "LOGInit() was called more than once; ignoring new values");
  }
}

void UTL_checkInit() {
  // Of threads that log first at the same moment, one initialises and says so.
  if (Initialise(nullptr, nullptr)) {
    UTL_LOGPrint(UTL_LOG_WRN, kLogSource, __LINE__, "UTL_checkInit",
                 "NOTE: Please call LOGInit() before other any log functions to avoid race conditions!");
  }
}

void UTL_LOGSetLevel(UTL_LOGLevel level, unsigned char enable) {
  if (!utl_logInit.load(std::memory_order_acquire)) {
    UTL_checkInit();
  }
  if (Index(level) < utl_logEnabled.size()) {
    const ExclusiveHold hold;
    utl_logEnabled[Index(level)].store(enable, std::memory_order_relaxed);
  }
}

void UTL_LOGSetWriteToStdout(bool enable) {
  utl_writeToStdout.store(enable, std::memory_order_relaxed);
}

void UTL_LOGSetWriteToFile(bool enable) {
  utl_writeToFile.store(enable, std::memory_order_relaxed);
}

void UTL_LOGSetWriteToSystemLog(bool enable) {
  utl_writeToSystemLog.store(enable, std::memory_order_relaxed);
}

// The test of the level stands before everything else in the three that follow: most lines of a program are
// of a level that is off.
void UTL_LOGPrint(UTL_LOGLevel level, const char* file, int line, const char* function, const char* format,
                  ...) {
  if (!IsOn(level)) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  Print({level, file, line, function}, format, arguments);
  va_end(arguments);
}

void UTL_LOGVPrint(UTL_LOGLevel level, const char* file, int line, const char* function, const char* format,
                   va_list arguments) {
  if (IsOn(level)) {
    Print({level, file, line, function}, format, arguments);
  }
}

void UTLWarn(int level, const char* file, int line, const char* function, const char* format, ...) {
  if (!IsOn(static_cast<UTL_LOGLevel>(level))) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  Print({static_cast<UTL_LOGLevel>(level), file, line, function}, format, arguments);
  va_end(arguments);
}

void UTL_log_vprint(UTL_LOGLevel level, const char* file, int line, const char* function,
                    const UTLTime_CalendarTime* now, const char* format, va_list arguments) {
  WriteLine(ThisThread(), {level, file, line, function}, *now, format, arguments);
}

void UTL_log_print(UTL_LOGLevel level, const char* /*file*/, int line, const char* function,
                   const UTLTime_CalendarTime* now, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  UTL_log_vprint(level, kLogSource, line, function, now, format, arguments);
  va_end(arguments);
}
