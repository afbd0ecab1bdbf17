/// @file
/// Helpers for tests of the logging facility. The facility is set up once per process and never taken down,
/// so each scenario runs in a child process that has not logged yet; the test program itself must not log.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "Utl_Log.h"

namespace logtest {

/// A directory of its own, removed with everything in it. In memory where there is such a place, because each
/// line of a file waits for its disk.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    const std::filesystem::path memory = "/dev/shm";
    const auto parent =
        std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
    std::string pattern = (parent / "pluginsdk-log-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw std::filesystem::filesystem_error("mkdtemp", std::error_code(errno, std::system_category()));
    }
    m_path = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;  // a test that took permissions away may leave something behind
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return m_path; }
  const char* c_str() const { return m_path.c_str(); }
  /// Where the process log files of `process` appear when this directory is the log root.
  std::string seriesOf(const std::string& process) const { return m_path + "/logs/" + process; }

 private:
  std::string m_path;
};

/// How a child ended, and all it wrote.
struct ChildResult {
  int exitCode = -1;  ///< -1 when a signal ended it
  int signal = 0;     ///< SIGKILL when it ran out of time
  std::string out;
  std::string err;
};

/// Runs `body` in a forked child whose standard output and standard error are pipes that the caller reads.
/// The child leaves through exit(), with 1 after a failed expectation, so sanitizers judge it too.
/// Expectations that fail inside `body` are in the result's `out`; see ExpectCleanExit.
inline ChildResult RunInChild(const std::function<void()>& body, int timeoutSeconds = 60) {
  std::array<int, 2> out{};
  std::array<int, 2> err{};
  if (::pipe(out.data()) != 0 || ::pipe(err.data()) != 0) {
    ADD_FAILURE() << "no pipes";
    return {};
  }
  std::fflush(nullptr);  // the child must not print what the parent had buffered
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {out[0], out[1], err[0], err[1]}) {
      ::close(fd);
    }
    body();
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  ::close(out[1]);
  ::close(err[1]);

  ChildResult result;
  std::array<pollfd, 2> polled = {{{out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
  std::array<char, 65536> bytes{};
  while (polled[0].fd >= 0 || polled[1].fd >= 0) {
    if (::poll(polled.data(), polled.size(), timeoutSeconds * 1000) == 0) {
      ::kill(child, SIGKILL);
      break;
    }
    for (pollfd& end : polled) {
      if (end.fd < 0 || end.revents == 0) continue;
      const ssize_t count = ::read(end.fd, bytes.data(), bytes.size());
      (&end == polled.data() ? result.out : result.err)
          .append(bytes.data(), count > 0 ? std::size_t(count) : 0);
      if (count <= 0) end.fd = -1;  // poll skips it from now on
    }
  }
  ::close(out[0]);
  ::close(err[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return result;
}

inline void ExpectCleanExit(const ChildResult& result) {
  EXPECT_EQ(result.exitCode, 0) << "signal " << result.signal << "\n--- stdout\n"
                                << result.out << "\n--- stderr\n"
                                << result.err;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Names of all entries of a directory in ascending order; empty when there is no directory.
inline std::vector<std::string> NamesIn(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(directory, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// Paths of the regular files among them.
inline std::vector<std::string> FilesIn(const std::string& directory) {
  std::vector<std::string> paths;
  for (const std::string& name : NamesIn(directory)) {
    const auto path = std::filesystem::path(directory) / name;
    if (std::filesystem::is_regular_file(path)) paths.push_back(path.string());
  }
  return paths;
}

/// One physical line. `valid` tells whether it has the header of a log line; the rest of a line without one
/// is empty but for `message`.
struct Line {
  bool valid = false;
  std::string time;
  std::string tag;
  unsigned long thread = 0;
  std::string file;
  int line = 0;
  std::string function;
  std::string message;
};

inline std::vector<Line> ParseLines(const std::string& text) {
  static const std::regex header(
      R"((\d\d:\d\d:\d\d\.\d{6})( TRACE | DBG   | INFO  |!!WRN!!|##ERR##|##CRITICAL##| ALWAYS)\|(\d+)\|([^:|]*):(-?\d+):([^|]*)\| )");
  std::vector<Line> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    Line line;
    std::smatch match;
    const std::string physical = text.substr(begin, end - begin);
    // A header is far shorter than 600 characters; std::regex would recurse once per character of a long
    // line.
    const std::string front = physical.substr(0, 600);
    line.valid = std::regex_search(front, match, header, std::regex_constants::match_continuous);
    if (line.valid) {
      line.time = match[1];
      line.tag = match[2];
      line.thread = std::stoul(match[3]);
      line.file = match[4];
      line.line = std::stoi(match[5]);
      line.function = match[6];
    }
    line.message = physical.substr(line.valid ? static_cast<std::size_t>(match.length()) : 0);
    lines.push_back(line);
    begin = end + 1;
  }
  return lines;
}

/// The lines as "tag|message", a line without header as it is: what remains when time, thread and position
/// are left out.
inline std::vector<std::string> Messages(const std::string& text) {
  std::vector<std::string> messages;
  for (const Line& line : ParseLines(text)) {
    messages.push_back(line.valid ? line.tag + "|" + line.message : line.message);
  }
  return messages;
}

/// Runs each scenario as the process "app" with a log root of its own.
class AppTest : public ::testing::Test {
 protected:
  ChildResult Run(const std::function<void()>& body) const {
    ChildResult result = RunInChild([&] {
      UTL_LOGInit("/usr/bin/app", m_root.c_str());
      body();
    });
    ExpectCleanExit(result);
    return result;
  }
  /// Of an entry in the directory of the process log.
  std::string Path(const std::string& name) const { return m_series + "/" + name; }
  /// All files of the process log, one after the other.
  std::string ProcessLog() const {
    std::string text;
    for (const std::string& path : FilesIn(m_series)) text += ReadFile(path);
    return text;
  }

  const TemporaryDirectory m_root;
  const std::string m_series = m_root.seriesOf("app");
};

}  // namespace logtest
