/// @file
/// Internal, not installed: masking as Util_LogSensitiveString does it, without the line in the log.
#pragma once

#include <cstddef>

namespace pluginsdk::log {

/// Masks, in place, every credential in the first `length` bytes of `buffer` and returns the new length. The
/// bytes behind it, up to `length`, are zeros then: nothing of a secret stays there. Safe for concurrent use.
std::size_t MaskCredentials(char* buffer, std::size_t length);

}  // namespace pluginsdk::log
