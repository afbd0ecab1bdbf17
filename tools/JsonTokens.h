/// @file
/// JSON texts as writers spell them: the same document with other blanks, or with other spellings of its
/// strings. Numbers stay as they stand. Bytes that are no JSON are kept.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Utf8.h"

namespace tool {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

/// Punctuation, strings with their quotes, numbers and words, in order, as views into `text`; blanks between
/// them are left out.
std::vector<std::string_view> Tokens(std::string_view text);

struct Spacing {
  std::string_view indent;  ///< for each level of a line of its own; empty for one line
  std::string_view gap;     ///< behind a colon, and behind a comma on one line
};
/// Empty objects and arrays stay "{}" and "[]".
std::string Respaced(std::string_view text, const Spacing& spacing);

/// The members of every object in the order of their names, without blanks. The text must be JSON.
std::string WithSortedKeys(std::string_view text);

/// '/' as "\/", and the reverse.
std::string WithEscapedSlashes(std::string_view text);
std::string WithPlainSlashes(std::string_view text);

/// What is beyond ASCII as \uXXXX with digits of `digits` ("0123456789abcdef" or its capitals).
std::string WithEscapedUnicode(std::string_view text, std::string_view digits);
/// '<', '>', '&' and the two line ends beyond ASCII as \uXXXX, for texts that are put into HTML.
std::string WithEscapedHtml(std::string_view text);
/// \uXXXX as the character it stands for, but for those that JSON must escape.
std::string WithPlainUnicode(std::string_view text);

/// What \uXXXX at the front of `text` stands for, which may be half a pair; size 0 where it does not stand.
Character ReadEscape(std::string_view text);

/// The text with U+FFFD for each byte that is not part of a character of UTF-8.
std::string ValidUtf8(std::string_view text);

}  // namespace tool
