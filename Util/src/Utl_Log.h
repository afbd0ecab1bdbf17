/// @file
/// The logging facility: one per process, configured by calls, usable from any thread at any time, static
/// constructors and destructors included.
///
/// A call to UTL_LOGPrint becomes one line of text,
///
///     09:05:01.000042 INFO  |4711|Reader.cpp:120:Poll| 3 frames dropped
///
/// (local time of day with microseconds, level tag, kernel thread id, source file, line, function, message),
/// which goes with one write call each to
/// - standard output,
/// - every open special log, followed by fsync,
/// - the process log: a dated file under the log root, followed by fsync, or, while in-memory logging is
///   on, a ring in shared memory that outlives a crash of the process.
///
/// @code
/// int main(int, char** argv) {
///   UTL_LOGInit(argv[0], "/var/lib/app");  // files in /var/lib/app/logs/<program name>/
///   UTL_LOGSetMax(4 * 524288);             // keep the four newest of 512 KiB each
///   UTL_LOGPrint(UTL_LOG_INFO, "app/main", __LINE__, __func__, "started with %d sensors", 3);
/// }
/// @endcode
///
/// All operations are safe for concurrent use, none throws, none changes errno, and a failure to write is
/// never reported to the caller: logging may fail, its caller may not. None is async-signal-safe. A forked
/// child goes on logging to the same file; in-memory logging is off in it.
#pragma once

#include <cstdarg>

#include "PluginSDK_export.h"

/// Levels are switches, not a threshold: each is on or off by itself.
enum UTL_LOGLevel : int {
  UTL_LOG_TRACE = 0,     ///< printed " TRACE ", off by default
  UTL_LOG_DBG = 1,       ///< printed " DBG   ", off by default
  UTL_LOG_INFO = 2,      ///< printed " INFO  "
  UTL_LOG_WRN = 3,       ///< printed "!!WRN!!"
  UTL_LOG_ERR = 4,       ///< printed "##ERR##"
  UTL_LOG_CRITICAL = 5,  ///< printed "##CRITICAL##"
  UTL_LOG_ALWAYS = 6     ///< printed " ALWAYS"
};

// Set-up.

/// Initialises the facility, once. Call it before any thread logs: whatever logs earlier initialises the
/// facility with the name "null" and without log files, and warns "NOTE: Please call LOGInit() before other
/// any log functions to avoid race conditions!".
/// A further call changes nothing and warns "LOGInit() was called more than once; ignoring new values".
/// @param processPath usually argv[0]. The part behind the last '/' or '\', cut to 63 characters, names the
///   log directory and the log files; null stands for "null".
/// @param logRoot directory under which "logs/<name>/" is made when the first line is logged, cut so that it
///   has 517 characters with the appended "/logs"; null for no process log at all.
PLUGINSDK_API void UTL_LOGInit(const char* processPath, const char* logRoot);

/// Switches one level on (non-zero) or off (zero). A value outside the enumeration is ignored. Initialises
/// the facility, with the warning above, when nothing has.
PLUGINSDK_API void UTL_LOGSetLevel(UTL_LOGLevel level, unsigned char enable);

/// Whether lines go to standard output (file descriptor 1). On by default.
PLUGINSDK_API void UTL_LOGSetWriteToStdout(bool enable);

/// Whether lines go to special logs and to the process log, ring included. On by default.
PLUGINSDK_API void UTL_LOGSetWriteToFile(bool enable);

/// Stored; no output depends on it.
PLUGINSDK_API void UTL_LOGSetWriteToSystemLog(bool enable);

/// Limits the series of process log files. A file is switched at the change of the day of month and, unless
/// the limit is 0, once it holds 524288 bytes; each switch then deletes old files. Every regular file in the
/// log directory whose name begins with the process name belongs to the series. Ignored before UTL_LOGInit.
///
/// | maxTotalSize, bytes | a switch keeps | and deletes |
/// |---|---|---|
/// | never called | the new file | the oldest other; all others when the series exceeds 524288 bytes |
/// | 0 | the 3 newest | the oldest other (all others after an earlier call with a limit) |
/// | 1 to 524288 | the new file | all others |
/// | above | the maxTotalSize / 524288 newest | all others |
PLUGINSDK_API void UTL_LOGSetMax(unsigned int maxTotalSize);

// Printing.

/// Logs one line. A level that is off costs a bounds test and a table read, evaluates nothing and does not
/// initialise the facility; so does a level outside the enumeration.
/// A message that ends in a newline gets no second one; inner newlines are kept. Lines are never cut, except
/// that without memory a line is cut to 252 characters and "...".
/// @param file source path of the caller; printed without its directories, "*" when null.
/// @param line source line.
/// @param function "<n/a>" when null.
/// @param format as of printf; null stands for an empty message.
PLUGINSDK_API void UTL_LOGPrint(UTL_LOGLevel level, const char* file, int line, const char* function,
                                const char* format, ...) __attribute__((format(printf, 5, 6)));

/// The same with an argument list, whose value is indeterminate afterwards as after vprintf.
PLUGINSDK_API void UTL_LOGVPrint(UTL_LOGLevel level, const char* file, int line, const char* function,
                                 const char* format, va_list arguments) __attribute__((format(printf, 5, 0)));

// Special logs: copies of all lines, in files of their own, up to a size.

/// Begins a special log, emptying the file first: "<logRoot>/logs/<process name>/special_logs/<name>", or
/// "/<process name>/special_logs/<name>" without a log root; cut to 1023 characters. Its first line is the
/// first one logged after this call. Starting a name again restarts it; entries that reached their limit are
/// cleared away by any start. Failures are logged; directories that cannot be made, and a file that cannot
/// be opened, are also told on standard error. Ignored before UTL_LOGInit.
/// @warning Waits, and all logging of the process with it, while another process holds the same file open.
/// @param name file name, with '/' for sub-directories; null is ignored.
/// @param maxSize bytes. A line is written as long as the file is smaller before it, so the file ends at
///   most one line beyond; 0 writes nothing.
PLUGINSDK_API void UTL_LOGStartSpecialLog(const char* name, unsigned int maxSize);

/// Ends all special logs. The descriptor of one that had reached its limit stays open until the process
/// ends. Ignored before UTL_LOGInit.
PLUGINSDK_API void UTL_LOGStopSpecialLogs();

// In-memory logging: lines of the process log go to a ring of 512 KiB in POSIX shared memory.

/// Turns in-memory logging on or off. Turning it on with the identifier of a process that died adopts what
/// that process had stored; a segment that contradicts itself is emptied, with a warning. Turning it off
/// flushes the ring and removes the segment. Lines are stored only while a process log file is open, and no
/// file is opened or switched between flushes. Does not initialise the facility; may come before UTL_LOGInit.
/// @param enable asking for the present state does nothing and returns 0.
/// @param id names the segment "/LOG_Shm_<id>", owner-only; one process at a time may use an identifier.
///   Looked at only when turning on.
/// @return 0, or -3 when the segment cannot be opened, sized or mapped; logging then goes on to the file.
PLUGINSDK_API int UTL_LOGSetEnableInMemoryLogging(bool enable, int id);

/// Copies the ring to the process log and empties it. Bytes that newer lines had overwritten are counted in
/// a line of level ALWAYS, "%d bytes of logging were dropped here". Does nothing while in-memory logging is
/// off.
PLUGINSDK_API void UTL_LOGFlushInMemoryLogs();

// Masking of credentials.

/// Logs prefix, text and suffix as one line at level INFO, with the value of every known credential key in
/// `text` (tickets, passwords, credential headers, partner passwords, keys) replaced by a single '*'. The
/// caller's text is not changed. Null texts count as empty.
/// @warning Masking works on a copy of `text` that stays allocated after the call, one for each call.
PLUGINSDK_API void Util_LogSensitiveString(const char* prefix, const char* text, const char* suffix,
                                           const char* file, int line, const char* function);

/// Replaces, in place, each value between `key` and `terminator` in the first `length` bytes by a single
/// '*', for example "pw=secret&x" by "pw=*&x" with "pw=" and "&". A value without terminator runs to the end
/// and is cut off there; an empty value stays as it is. Takes time linear in `length`.
/// @param buffer need not be terminated. Bytes behind the new length are wiped.
/// @return the new length. Null arguments and an empty key or terminator mask nothing.
PLUGINSDK_API unsigned long maskText(char* buffer, unsigned long length, const char* key,
                                     const char* terminator);

/// First occurrence of the whole `needle` within the first `length` bytes of `haystack`, null when there is
/// none; `haystack` itself for an empty needle. Bytes are compared as they are; `haystack` need not be
/// terminated and is not read beyond `length`. Null arguments count as empty texts.
PLUGINSDK_API char* UTLString_strnstr(const char* haystack, const char* needle, unsigned long length);
