#include "KeyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "Input.h"
#include "Subcommand.h"

namespace tool {

namespace {

// Far above any key, far below what is given by mistake: a device without end, a log.
constexpr std::size_t kLongestKey = 65536;

// Read without stdio, whose buffer would keep the key.
class KeyReader {
 public:
  explicit KeyReader(const std::string& file) : m_fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~KeyReader() {
    ::explicit_bzero(m_bytes.data(), m_bytes.size());
    if (m_fd >= 0) ::close(m_fd);
  }
  KeyReader(const KeyReader&) = delete;
  KeyReader& operator=(const KeyReader&) = delete;

  // False, with errno, when the file cannot be read.
  bool Read() {
    while (m_fd >= 0 && m_size < m_bytes.size()) {
      const ssize_t count = ::read(m_fd, m_bytes.data() + m_size, m_bytes.size() - m_size);
      if (count == 0) return true;
      if (count > 0) {
        m_size += static_cast<std::size_t>(count);
      } else if (errno != EINTR) {
        return false;
      }
    }
    return m_fd >= 0;
  }

  bool ReadableByAll() const {
    struct stat status = {};
    return ::fstat(m_fd, &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & S_IROTH) != 0;
  }

  std::string_view Bytes() const { return {m_bytes.data(), m_size}; }

 private:
  int m_fd;
  std::size_t m_size = 0;
  std::array<char, kLongestKey + 1> m_bytes;
};

}  // namespace

AccessKey::AccessKey(std::string_view front, std::string_view middle, std::string_view end) {
  m_bytes.reserve(front.size() + middle.size() + end.size());  // growing would leave a copy behind
  m_bytes.append(front).append(middle).append(end);
}

AccessKey::~AccessKey() {
  ::explicit_bzero(m_bytes.data(), m_bytes.size());
}

AccessKey ReadKeyFile(const std::string& file) {
  KeyReader reader(file);
  if (!reader.Read()) throw Unusable(file + ": " + std::strerror(errno));
  if (reader.Bytes().empty()) throw Unusable(file + ": empty, where the access key should stand");
  if (reader.Bytes().size() > kLongestKey) throw Unusable(file + ": too long for an access key");
  if (reader.ReadableByAll()) {
    Note(file + ": every user of this machine can read this key");
  }
  return AccessKey(reader.Bytes());
}

}  // namespace tool
