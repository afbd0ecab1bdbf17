/// @file
/// A level that is off, and one line into the ring and into the file, against an empty call, bare system
/// calls, and the ring-buffer sink of spdlog, which keeps the bare message and formats no prefix at all.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include "Comparison.h"
#include "EmptyCall.h"
#include "Utl_Log.h"

namespace bench {

namespace {

constexpr std::size_t kThreads = 4;
constexpr std::size_t kRingSize = 524288;  // of our ring; the peer's holds as many records as fit into it

void PrintOurs() {
  UTL_LOGPrint(UTL_LOG_INFO, "benchmarks/Logging", __LINE__, "Print", "sensor %d reads %s", 42, "21.5");
}

/// Log files in a directory of their own below the current one, so that the caller chooses the disk.
class LogDirectory {
 public:
  LogDirectory() {
    std::string pattern = (std::filesystem::current_path() / "bench-log-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      std::exit(EXIT_FAILURE);
    }
    m_path = pattern;
  }
  ~LogDirectory() {
    std::error_code ignored;  // nothing could be done about it
    std::filesystem::remove_all(m_path, ignored);
  }
  LogDirectory(const LogDirectory&) = delete;
  LogDirectory& operator=(const LogDirectory&) = delete;

  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

/// The one line that the facility has written so far.
std::string FirstLine(const std::string& root) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::fprintf(stderr, "no log file was written\n");
  std::exit(EXIT_FAILURE);
}

/// Splits the lines among threads.
template <typename Print>
std::function<void(std::size_t)> RepeatInThreads(Print print) {
  return [print](std::size_t times) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
      threads.emplace_back([print, share = times / kThreads + 1] { Repeat(print)(share); });
    }
    for (std::thread& thread : threads) thread.join();
  };
}

Row SwitchedOff() {
  const Subject ours = {"UTL_LOGPrint, level off", Repeat([] {
                          UTL_LOGPrint(UTL_LOG_DBG, "benchmarks/Logging", __LINE__, "Print", "%d of %s", 42,
                                       "21.5");
                        })};
  const Subject empty = {"empty call", Repeat([] {
                           EmptyCall(1, "benchmarks/Logging", __LINE__, "Print", "%d of %s", 42, "21.5");
                         })};
  return {"switched-off level", ours, {{empty, Aim{2.0, 0, 5}}}};
}

void RingOn() {
  if (UTL_LOGSetEnableInMemoryLogging(true, static_cast<int>(getpid())) == 0) return;
  std::fprintf(stderr, "the ring cannot be turned on\n");
  std::exit(EXIT_FAILURE);
}

void RingOff() {
  UTL_LOGSetEnableInMemoryLogging(false, 0);
}

std::vector<Row> Ring() {
  constexpr std::size_t kRecords = kRingSize / sizeof(spdlog::details::log_msg_buffer);
  const auto logger =
      std::make_shared<spdlog::logger>("peer", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(kRecords));
  const auto print = [logger = logger.get(), keep = logger] {
    logger->info("sensor {} reads {}", 42, "21.5");
  };
  const auto ours = [](auto run) { return Subject{"ring", run, 1, RingOn, RingOff}; };
  const auto peer = [](auto run) { return Subject{"spdlog ring buffer", run}; };
  return {
      {"line into the ring", ours(Repeat(PrintOurs)), {{peer(Repeat(print)), Aim{1.2}}}},
      {"line into the ring, 4 threads",
       ours(RepeatInThreads(PrintOurs)),
       {{peer(RepeatInThreads(print)), Aim{1.0}}}},
  };
}

Row File(const std::string& root, const std::string& line) {
  const int fd = open((root + "/bare").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  const Subject bare = {"write + fsync", Repeat([fd, line] {
                          if (write(fd, line.data(), line.size()) < 0 || fsync(fd) != 0) std::perror("write");
                        })};
  return {"line into the file", {"process log", Repeat(PrintOurs)}, {{bare, Aim{1.03, 1000}}}, 100};
}

}  // namespace

std::string Family() {
  return "logging";
}

std::vector<Row> Rows() {
  static const LogDirectory directory;
  UTL_LOGInit("benchmark", directory.path().c_str());
  UTL_LOGSetWriteToStdout(false);
  PrintOurs();  // opens the process log, without which the ring stores nothing

  std::vector<Row> rows = {SwitchedOff()};
  for (Row& row : Ring()) rows.push_back(std::move(row));
  rows.push_back(File(directory.path(), FirstLine(directory.path())));
  return rows;
}

}  // namespace bench
