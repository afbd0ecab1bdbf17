#include "RingSegment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "Utl_LogRingLayout_internal.h"

namespace ringtool {

namespace ring = pluginsdk::ring;

namespace {

constexpr const char* kSharedMemoryDirectory = "/dev/shm";

}  // namespace

RingSegment::RingSegment(int fd) : m_fd(fd) {
  struct stat status = {};
  if (m_fd < 0 || ::fstat(m_fd, &status) != 0) {
    m_problem = std::strerror(errno);
    return;
  }
  // Touching a mapping behind the end of its file would kill us.
  if (status.st_size < static_cast<off_t>(ring::kSegmentSize)) {
    m_tooShort = true;
    m_problem =
        std::to_string(status.st_size) + " bytes, where a segment has " + std::to_string(ring::kSegmentSize);
    return;
  }
  void* mapped = ::mmap(nullptr, ring::kSegmentSize, PROT_READ, MAP_SHARED, m_fd, 0);
  if (mapped == MAP_FAILED) {
    m_problem = std::strerror(errno);
    return;
  }
  m_bytes = mapped;
}

RingSegment::RingSegment(RingSegment&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)),
      m_bytes(std::exchange(other.m_bytes, nullptr)),
      m_tooShort(other.m_tooShort),
      m_problem(std::move(other.m_problem)) {}

RingSegment::~RingSegment() {
  if (m_bytes != nullptr) {
    ::munmap(const_cast<void*>(m_bytes), ring::kSegmentSize);
  }
  if (m_fd >= 0) {
    ::close(m_fd);
  }
}

RingSegment RingSegment::OfName(const std::string& name) {
  return RingSegment(::shm_open(name.c_str(), O_RDONLY, 0));
}

RingSegment RingSegment::OfFile(const std::string& path) {
  return RingSegment(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

bool RingSegment::Removed() const {
  struct stat status = {};
  return ::fstat(m_fd, &status) == 0 && status.st_nlink == 0;
}

std::string SegmentName(int id) {
  std::array<char, ring::kNameSize> name = {};
  std::snprintf(name.data(), name.size(), ring::kNameFormat, ring::kNamePrefix, id);
  return name.data();
}

std::vector<std::string> ListSegments() {
  std::vector<std::string> names;
  const std::string prefix = std::string(ring::kNamePrefix) + "_";
  std::error_code unreadable;  // no such directory, no segments
  for (const auto& entry : std::filesystem::directory_iterator(kSharedMemoryDirectory, unreadable)) {
    const std::string name = "/" + entry.path().filename().string();
    if (name.compare(0, prefix.size(), prefix) == 0) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace ringtool
