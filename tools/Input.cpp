#include "Input.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "JsonFault.h"

namespace tool {

namespace {

constexpr std::size_t kBlock = 65536;  // as much as a pipe holds

struct FileCloser {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void Refuse(const std::string& name, const std::string& why) {
  throw Unusable(name + ": " + why);
}

std::string ReadAll(std::FILE* file, const std::string& name) {
  std::string text;
  std::array<char, kBlock> block;
  std::size_t count = 0;
  while ((count = std::fread(block.data(), 1, block.size(), file)) > 0) {
    text.append(block.data(), count);
  }
  if (std::ferror(file) != 0) Refuse(name, std::strerror(errno));
  return text;
}

std::string Where(const Input& input, std::size_t offset) {
  const Position position = PositionAt(input.text, offset);
  return input.name + ":" + std::to_string(position.line) + ":" + std::to_string(position.column);
}

pluginsdk::internal::JsonPtr Parse(const Input& input, bool whole) {
  const char* const begin = input.text.c_str();
  const char* end = begin;
  pluginsdk::internal::JsonPtr tree(cJSON_ParseWithOpts(begin, &end, whole ? 1 : 0));
  if (tree != nullptr) return tree;
  const std::size_t offset = std::min(static_cast<std::size_t>(end - begin), input.text.size());
  const JsonFault fault =
      FindJsonFault(input.text, whole).value_or(JsonFault{offset, UnexpectedAt(input.text, offset)});
  throw Unusable(Where(input, fault.offset) + ": " + fault.reason);
}

}  // namespace

Input ReadBytes(const std::string& file) {
  const bool standard = file.empty() || file == "-";
  Input input{standard ? "<standard input>" : file, ""};
  const FilePtr opened(standard ? stdin : std::fopen(file.c_str(), "rbe"));
  if (opened == nullptr) Refuse(input.name, std::strerror(errno));
  input.text = ReadAll(opened.get(), input.name);
  return input;
}

Input ReadInput(const std::string& file) {
  Input input = ReadBytes(file);
  const std::size_t zero = input.text.find('\0');
  if (zero != std::string::npos) throw Unusable(Where(input, zero) + ": a zero byte, where texts end");
  return input;
}

Position PositionAt(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::size_t newline = before.rfind('\n');
  const std::string_view line = newline == std::string_view::npos ? before : before.substr(newline + 1);
  Position position;
  position.line += static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  // Bytes 10xxxxxx go on with a character that has begun.
  position.column += static_cast<std::size_t>(std::count_if(
      line.begin(), line.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
  return position;
}

pluginsdk::internal::JsonPtr ParseInput(const Input& input) {
  return Parse(input, true);
}

pluginsdk::internal::JsonPtr ParseMessage(const Input& input) {
  return Parse(input, false);
}

}  // namespace tool
