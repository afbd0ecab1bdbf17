/// @file
/// Helpers for tests of the logging facility. The facility is set up once per process and never taken down,
/// so each scenario runs in a child process that has not logged yet; the test program itself must not log.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Utl_Log.h"

namespace logtest {

using Texts = std::vector<std::string>;
using Names = std::set<std::string>;

/// A directory of its own, removed with everything in it. In memory, because each line of a file waits for
/// its disk.
class TemporaryDirectory {
 public:
  TemporaryDirectory() { EXPECT_NE(::mkdtemp(m_path.data()), nullptr); }
  ~TemporaryDirectory() {
    std::error_code ignored;  // a test that took permissions away may leave something behind
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return m_path; }
  const char* c_str() const { return m_path.c_str(); }
  /// Where the log files of the process "app" appear when this directory is the log root.
  std::string series() const { return m_path + "/logs/app"; }

 private:
  std::string m_path = "/dev/shm/pluginsdk-test-XXXXXX";
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// How a child ended, and all it wrote.
struct ChildResult {
  int status = -1;  ///< as waitpid tells it; SIGALRM when it ran out of time
  std::string out, err;
};

/// Runs `body` in a forked child whose standard output is a pipe, and its standard error a file in memory.
/// The child leaves through exit(), with 1 after a failed expectation, so sanitizers judge it too.
/// Expectations that fail inside `body` are in the result's `out`; see ExpectCleanExit.
inline ChildResult RunInChild(const std::function<void()>& body) {
  std::array<int, 2> out{};
  EXPECT_EQ(::pipe(out.data()), 0);
  const int err = ::memfd_create("standard error", 0);
  std::fflush(nullptr);  // the child must not print what the parent had buffered
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(60);
    ::dup2(out[1], 1);
    ::dup2(err, 2);
    for (const int fd : {out[0], out[1], err}) ::close(fd);
    body();
    std::exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  ::close(out[1]);
  ChildResult result;
  result.out = ReadFile("/proc/self/fd/" + std::to_string(out[0]));
  ::waitpid(child, &result.status, 0);
  result.err = ReadFile("/proc/self/fd/" + std::to_string(err));
  for (const int fd : {out[0], err}) ::close(fd);
  return result;
}

inline void ExpectCleanExit(const ChildResult& result) {
  EXPECT_EQ(result.status, 0) << "--- stdout\n" << result.out << "\n--- stderr\n" << result.err;
}

/// Prints `message` as it is, from position x:1:f.
inline void Print(const std::string& message, UTL_LOGLevel level = UTL_LOG_INFO) {
  UTL_LOGPrint(level, "x", 1, "f", "%s", message.c_str());
}

/// Names of all entries of a directory; none when there is no directory.
inline Names NamesIn(const std::string& directory) {
  Names names;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(directory, missing))
    names.insert(entry.path().filename());
  return names;
}

/// Paths of the regular files among them, in ascending order.
inline Texts FilesIn(const std::string& directory) {
  Texts paths;
  for (const std::string& name : NamesIn(directory)) {
    const std::string path = directory + "/" + name;
    if (std::filesystem::is_regular_file(path)) paths.push_back(path);
  }
  return paths;
}

/// One physical line. All of it is `message` when it has no header of a log line.
struct Line {
  bool valid;
  std::string tag, thread, file, number, function, message;
};

inline std::vector<Line> ParseLines(const std::string& text) {
  static const std::regex header(
      R"(\d\d:\d\d:\d\d\.\d{6}( TRACE | DBG   | INFO  |!!WRN!!|##ERR##|##CRITICAL##| ALWAYS)\|(\d+)\|([^:|]*):(-?\d+):([^|]*)\| )");
  std::vector<Line> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    // Longer than any header; std::regex would recurse once per character of a long line.
    const std::string front = line.substr(0, 600);
    std::smatch at;
    if (std::regex_search(front, at, header, std::regex_constants::match_continuous)) {
      const std::string message = line.substr(static_cast<std::size_t>(at.length()));
      lines.push_back({true, at[1], at[2], at[3], at[4], at[5], message});
    } else {
      lines.push_back({false, "", "", "", "", "", line});
    }
  }
  return lines;
}

/// The lines as "tag|message", a line without header as it is: what remains when time, thread and position
/// are left out.
inline Texts Messages(const std::string& text) {
  Texts messages;
  for (const Line& line : ParseLines(text))
    messages.push_back(line.valid ? line.tag + "|" + line.message : line.message);
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
  const std::string m_series = m_root.series();
};

}  // namespace logtest
