// Adoption and flush of the in-memory log over arbitrary segment bytes. The input is the header as another
// process may have left it; the ring behind it is filled with a pattern. Whatever stands there, turning on,
// logging, flushing and turning off stay inside the segment, and a line logged afterwards is in the file.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "FuzzSupport.h"
#include "Utl_LogRingLayout_internal.h"

namespace {

namespace ring = pluginsdk::ring;

int Identifier() {
  return static_cast<int>(getpid());
}

std::string SegmentName() {
  return std::string(ring::kNamePrefix) + "_" + std::to_string(Identifier());
}

// A log root of its own, in memory: every line is synced.
class LogRoot {
 public:
  LogRoot() : m_path("/dev/shm/fuzz_ring_" + std::to_string(getpid())) {
    std::filesystem::create_directories(m_path);
    UTL_LOGInit("fuzz", m_path.c_str());
    UTL_LOGSetWriteToStdout(false);
    UTL_LOGPrint(UTL_LOG_INFO, "f", 1, "f", "the first line opens the file");
  }
  ~LogRoot() {
    std::error_code ignored;  // a folder that stays behind is no fault of the library
    std::filesystem::remove_all(m_path, ignored);
  }

  // The text of all files, oldest first.
  std::string Text() const {
    std::string text;
    std::set<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_path + "/logs/fuzz"))
      files.insert(entry.path());
    for (const auto& file : files) {
      std::ifstream stream(file);
      text.append(std::istreambuf_iterator<char>(stream), {});
    }
    return text;
  }

 private:
  std::string m_path;
};

void WriteSegment(const uint8_t* data, size_t size) {
  static std::array<char, ring::kSegmentSize> bytes;
  bytes.fill('r');
  std::memcpy(bytes.data(), data, std::min<std::size_t>(size, bytes.size()));
  const int fd = shm_open(SegmentName().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
  FUZZ_CHECK(fd >= 0 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const LogRoot root;
  static unsigned round = 0;
  if (size > 4096) return 0;  // the header has 164 bytes; more pattern changes nothing
  WriteSegment(data, size);
  FUZZ_CHECK(UTL_LOGSetEnableInMemoryLogging(true, Identifier()) == 0);
  const std::string line = "line of round " + std::to_string(++round) + " ends";
  UTL_LOGPrint(UTL_LOG_INFO, "f", 1, "f", "%s", line.c_str());
  if (size % 2 == 0) UTL_LOGFlushInMemoryLogs();
  FUZZ_CHECK(UTL_LOGSetEnableInMemoryLogging(false, 0) == 0);
  // Reading half a megabyte back every time would leave little time for the rest.
  if (round % 64 == 0) FUZZ_CHECK(root.Text().find(line) != std::string::npos);
  return 0;
}
