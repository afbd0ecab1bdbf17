/// @file
/// The access key, and any other secret, comes from a file that only its owner can read: the command line and
/// the environment of a process can be read by others of the same machine.
#pragma once

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace demo {

/// Every byte of a regular file that group and others have no rights to. A newline at the end is refused: it
/// would be a part of the secret, and is nearly always the work of an editor or of echo.
/// @throws std::runtime_error that names the file, never what it holds
inline std::string ReadKey(const std::string& path) {
  constexpr std::size_t kMost = 4096;  // far more than any key; a file that fills it is no key
  // "e": a program that the plugin starts must not inherit the descriptor.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  struct stat status = {};
  // The open file is asked, not the path, which may lead to another file by now.
  if (file == nullptr || ::fstat(::fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw std::runtime_error(path + " cannot be read, or is no regular file");
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw std::runtime_error(path + " can be read by others; try chmod 600");
  }
  std::string key(kMost, '\0');
  key.resize(std::fread(key.data(), 1, kMost, file.get()));
  if (key.empty() || key.size() == kMost || std::ferror(file.get()) != 0) {
    throw std::runtime_error(path + " is empty, or too long for a secret");
  }
  if (key.back() == '\n') {
    throw std::runtime_error(path + " ends in a newline; write the secret without one (printf %s)");
  }
  return key;
}

}  // namespace demo
