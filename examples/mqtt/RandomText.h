/// @file
/// Ids and keys that nobody can guess.
#pragma once

#include <cstddef>
#include <random>
#include <string>

namespace demo::mqtt {

/// `bytes` random bytes of the system's source in hexadecimal.
inline std::string RandomHex(std::size_t bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::random_device source;  // not rand(): its sequence can be guessed
  std::string text;
  for (std::size_t digit = 0; digit < 2 * bytes; ++digit) {
    text += kDigits[source() % 16];
  }
  return text;
}

}  // namespace demo::mqtt
