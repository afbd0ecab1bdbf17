/// @file
/// Numbers that do not survive the way through a tree: a number of a tree is a double.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct ChangedNumber {
  std::size_t offset = 0;  ///< of the number in the text
  std::string literal;     ///< as it stands there
  std::string printed;     ///< as the tree prints it
};

/// The numbers of a JSON text that have another value when the text was parsed and printed again, such as
/// 12345678901234567890 and 1e400; not those that are merely spelled otherwise, such as 1.0.
std::vector<ChangedNumber> ChangedNumbers(std::string_view text);

}  // namespace tool
