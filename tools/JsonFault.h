/// @file
/// Where and why a text is not JSON: cJSON tells no reason, and often a place behind the fault.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tool {

struct JsonFault {
  std::size_t offset = 0;
  std::string reason;
};

/// The first fault of a text that cJSON refuses; nothing where none is found. Linear, without recursion.
/// @param whole whether only blanks may follow the document
std::optional<JsonFault> FindJsonFault(std::string_view text, bool whole);

/// Where the document that begins a text ends; blanks behind it are not part of it.
std::size_t EndOfDocument(std::string_view text);

/// What stands at the offset, where something else should: "not JSON: unexpected 'x'".
std::string UnexpectedAt(std::string_view text, std::size_t offset);

}  // namespace tool
