/// @file
/// Why a signature does not fit: what usually happens to texts and keys on their way, undone and tried.
#pragma once

#include <cjson/cJSON.h>

#include <functional>
#include <optional>
#include <string>

#include "KeyFile.h"

namespace tool {

/// A message whose signature does not fit.
struct Suspect {
  std::string text;    ///< what is digested: as received, with the method cut short
  const cJSON* tree;   ///< the same as a tree
  std::string method;  ///< the method in both, without its signature
};

struct Cause {
  std::string what;
  std::string remedy;
};

struct Search {
  std::optional<Cause> cause;
  bool complete = true;  ///< false when costly signatures ended it early
};

/// Whether the signature is the one of this digest and this key.
using Fits = std::function<bool(const std::string& digest, const AccessKey& key)>;

/// Tries each usual cause, then each two of them that do not exclude each other, until the signature fits.
Search FindCause(const Suspect& suspect, const AccessKey& key, const Fits& fits);

}  // namespace tool
