/// @file
/// What the subcommands read: a file or standard input, as bytes and as JSON, and why it could not be used.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "JsonHandle_internal.h"

namespace tool {

/// Ends a subcommand with kCannotRun. The text is told on standard error.
class Unusable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Input {
  std::string name;  ///< for messages to the user: the file as given, or "<standard input>"
  std::string text;  ///< every byte of it
};

/// The whole of `file`, or of standard input when it is empty or "-".
/// @throws Unusable when it cannot be read.
Input ReadBytes(const std::string& file);

/// The same for a text.
/// @throws Unusable also when it holds a zero byte, at which the library's texts end.
Input ReadInput(const std::string& file);

/// A place in a text as an editor tells it: both from 1, the column in characters of UTF-8.
struct Position {
  std::size_t line = 1;
  std::size_t column = 1;
};
Position PositionAt(std::string_view text, std::size_t offset);

/// The tree of a text that must be one JSON document and nothing else.
/// @throws Unusable with name, line and column of the first byte that is not JSON.
pluginsdk::internal::JsonPtr ParseInput(const Input& input);

/// The same for a text as the library takes it: what follows the document is not looked at.
pluginsdk::internal::JsonPtr ParseMessage(const Input& input);

}  // namespace tool
