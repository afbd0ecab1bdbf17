/// @file
/// One line to standard output, which is a pipe or /dev/null for the length of a batch. There is no log root,
/// so standard output is the only destination. The lines of spdlog carry neither thread nor position.
#include <fcntl.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Comparison.h"
#include "Utl_Log.h"

namespace bench {

namespace {

int savedStdout = -1;
pid_t reader = -1;

void PointStdoutAt(int fd) {
  savedStdout = fcntl(1, F_DUPFD_CLOEXEC, 3);
  dup2(fd, 1);
  close(fd);
}

void RestoreStdout() {
  dup2(savedStdout, 1);
  close(savedStdout);
  if (reader > 0) waitpid(reader, nullptr, 0);  // our end of its pipe is closed now
  reader = -1;
}

void StdoutToNull() {
  PointStdoutAt(open("/dev/null", O_WRONLY | O_CLOEXEC));
}

/// A pipe that another process drains.
void StdoutToPipe() {
  int ends[2];
  if (pipe(ends) != 0) {
    std::perror("pipe");
    std::exit(EXIT_FAILURE);
  }
  reader = fork();
  if (reader == 0) {
    close(ends[1]);
    char bytes[65536];
    while (read(ends[0], bytes, sizeof bytes) > 0) {
    }
    _exit(0);
  }
  close(ends[0]);
  PointStdoutAt(ends[1]);
}

Row Stdout(const char* operation, void (*redirect)()) {
  const auto logger =
      std::make_shared<spdlog::logger>("peer", std::make_shared<spdlog::sinks::stdout_sink_mt>());
  const Subject ours = {"standard output", Repeat([] {
                          UTL_LOGPrint(UTL_LOG_INFO, "benchmarks/StandardOutput", __LINE__, "Print",
                                       "sensor %d reads %s", 42, "21.5");
                        }),
                        1, redirect, RestoreStdout};
  const Subject peer = {"spdlog stdout sink",
                        Repeat([logger] { logger->info("sensor {} reads {}", 42, "21.5"); }), 1, redirect,
                        RestoreStdout};
  return {operation, ours, {{peer, Aim{1.0}}}};
}

}  // namespace

std::string Family() {
  return "logging";
}

std::vector<Row> Rows() {
  UTL_LOGInit("benchmark", nullptr);
  return {Stdout("line to a pipe", StdoutToPipe), Stdout("line to /dev/null", StdoutToNull)};
}

}  // namespace bench
