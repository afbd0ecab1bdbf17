/// @file
/// The verdict on a request that a plugin sends, or on the params of one.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Findings.h"

namespace tool {

struct RequestVerdict {
  bool isWhole = false;  ///< a whole request, not the params alone
  std::string method;    ///< without version and signature; empty when it cannot be told
  std::string version;   ///< as written, "v1" say; empty for params alone
  bool isSigned = false;

  /// Bytes of the indented printing, the one that counts; of params alone, as a "v1" request.
  std::size_t size = 0;
  std::optional<std::size_t> signedSize;  ///< with the signature that it does not carry yet
  std::optional<std::size_t> limit;       ///< absent for kinds that may have any size

  std::vector<Finding> findings;
};

/// `text` is what `document` was parsed from.
RequestVerdict CheckRequest(const cJSON* document, const std::string& text);

}  // namespace tool
