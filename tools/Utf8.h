/// @file
/// Characters of UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tool {

struct Character {
  std::uint32_t code = 0;
  std::size_t size = 0;  ///< bytes it takes; 0 when there is none
};

/// The character that begins `text`, which is not empty, when it is spelled in the shortest form.
Character Decode(std::string_view text);

}  // namespace tool
