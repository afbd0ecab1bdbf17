/// @file
/// The access key of a signature, which reaches the tool through a file only: arguments of a command line can
/// be read by every user of the machine.
#pragma once

#include <string>
#include <string_view>

namespace tool {

/// An access key, put together of its parts, wiped when it goes.
class AccessKey {
 public:
  explicit AccessKey(std::string_view front, std::string_view middle = "", std::string_view end = "");
  ~AccessKey();
  AccessKey(const AccessKey&) = delete;
  AccessKey& operator=(const AccessKey&) = delete;

  const std::string& Bytes() const { return m_bytes; }

 private:
  std::string m_bytes;
};

/// The bytes of a file, every one of them: a newline at its end is part of the key. A note on standard error
/// tells when every user may read the file.
/// @throws Unusable when it cannot be read, is empty, or is longer than any key.
AccessKey ReadKeyFile(const std::string& file);

/// What --help says of the option.
constexpr const char* kKeyFileHelp =
    "file whose bytes are the access key, every one of them: a newline at its end counts";

}  // namespace tool
