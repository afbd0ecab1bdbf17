/// @file
/// The signature of a message, an Argon2id hash in its encoded form, taken apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

struct EncodedHash {
  std::uint32_t version = 16;  ///< what one that names no version has
  std::uint32_t memoryKiB = 0;
  std::uint32_t passes = 0;
  std::uint32_t lanes = 0;
  std::size_t saltSize = 0;  ///< in bytes
  std::size_t hashSize = 0;

  std::string flaw;  ///< why libargon2 cannot compute it; empty when it can
};

EncodedHash ReadEncodedHash(std::string_view text);

}  // namespace tool
