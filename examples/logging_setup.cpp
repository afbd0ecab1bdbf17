// The log of a plugin, from set-up to the lines that a killed run left behind.
//
//   g++ -std=c++17 logging_setup.cpp -o logging_setup $(pkg-config --cflags --libs pluginsdk)
//   ./logging_setup ROOT ID --crash     kills itself while its last lines are in shared memory only
//   ./logging_setup ROOT ID             the next run finds them, and writes them to its own log file
//
// Log files appear in ROOT/logs/logging_setup. ID is any number that no other running process uses: it names
// the segment of shared memory.
#include <sys/stat.h>

#include <charconv>
#include <csignal>
#include <iostream>
#include <string>

#include "Utl_Log.h"

/// Every line says where it comes from.
#define LOG(level, ...) UTL_LOGPrint(level, "plugin/logging_setup", __LINE__, __func__, __VA_ARGS__)

namespace {

constexpr unsigned kFileSize = 524288;  // a log file that has reached it is followed by the next one

/// Lines go to a ring in shared memory, without a system call each, for as long as this object lives.
class InMemoryLog {
 public:
  explicit InMemoryLog(int id) : m_id(id) {
    // The ring takes lines only while a log file is open. This line opens it.
    LOG(UTL_LOG_INFO, "what a killed run left, if anything, follows");
    // On adopts the segment of a killed run with its contents; off writes them to the file, before new lines
    // could overwrite them. Off again, the next line goes to the file too and not to the ring, where the run
    // after a crash would find it among the lines of this one.
    UTL_LOGSetEnableInMemoryLogging(true, m_id);
    UTL_LOGSetEnableInMemoryLogging(false, m_id);
    LOG(UTL_LOG_INFO, "end of what a killed run left");
    if (UTL_LOGSetEnableInMemoryLogging(true, m_id) != 0) {
      LOG(UTL_LOG_WRN, "no shared memory: each line goes to the file, as before");
    }
  }
  ~InMemoryLog() { UTL_LOGSetEnableInMemoryLogging(false, m_id); }  // writes the rest, removes the segment
  InMemoryLog(const InMemoryLog&) = delete;
  InMemoryLog& operator=(const InMemoryLog&) = delete;

 private:
  int m_id;
};

/// Copies all lines of its lifetime to a file of their own, special_logs/NAME, with debug lines among them.
class Capture {
 public:
  explicit Capture(const char* name) {
    UTL_LOGStartSpecialLog(name, 64 * 1024);  // bytes; a full one ends by itself
    UTL_LOGSetLevel(UTL_LOG_DBG, 1);          // each level is a switch of its own, not a threshold
  }
  ~Capture() {
    UTL_LOGSetLevel(UTL_LOG_DBG, 0);
    UTL_LOGStopSpecialLogs();
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;
};

void SetUp(const char* program, const char* root) {
  ::umask(S_IRWXG | S_IRWXO);  // log files are for their owner only
  UTL_LOGSetWriteToStdout(false);
  UTL_LOGInit(program, root);  // once, before any thread logs
  // By default a new file deletes all others. A flush of the ring may need two files, and the log of the run
  // before should be there to be read.
  UTL_LOGSetMax(4 * kFileSize);
}

void Work(bool crash) {
  for (int step = 1; step <= 3; ++step) {
    LOG(UTL_LOG_INFO, "step %d of 3", step);
  }
  if (crash) {
    static_cast<void>(std::raise(SIGKILL));  // no destructor and no handler runs
  }
  const Capture capture("exchange.log");
  LOG(UTL_LOG_DBG, "only while something is captured");
  // Texts of others may carry credentials. Their values are replaced by "*"; the masked copy stays allocated,
  // so this is for single texts and not for every message.
  Util_LogSensitiveString("sent ", "login: plugin\npassword: not for the log\n", "", "plugin/logging_setup",
                          __LINE__, __func__);
  // A long-running plugin flushes now and then: the ring holds 512 KiB and overwrites its oldest lines.
  UTL_LOGFlushInMemoryLogs();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string idText = argc > 2 ? argv[2] : "";
  const char* end = idText.data() + idText.size();
  int id = 0;
  const auto parsed = std::from_chars(idText.data(), end, id);
  if (parsed.ec != std::errc() || parsed.ptr != end) {
    std::cerr << "usage: " << argv[0] << " ROOT ID [--crash]" << std::endl;
    return 2;
  }
  SetUp(argv[0], argv[1]);
  const InMemoryLog ring(id);
  Work(argc > 3 && argv[3] == std::string("--crash"));
  LOG(UTL_LOG_INFO, "ended");
  return 0;
}
