/// @file
/// Internal, not installed: the verification that commands and alarm updates of the agent share.
#pragma once

#include <string>

namespace pluginsdk::internal {

/// Whether a received request may be trusted. `text` is the request as received, `method` the value of
/// its "method" member. A method that contains "v1" is accepted unverified. Otherwise it must contain
/// "v2", `accessKey` must not be empty, and what follows the last "?authorization=" must be a valid
/// signature of the text in which the first occurrence of `method` is cut short at its first "?".
/// Throws std::out_of_range ("basic_string::replace ...") when a "v2" method with an access key does
/// not occur verbatim in the text, for instance because the sender escaped a character of it.
bool IsAuthentic(const char* text, const std::string& method, const std::string& accessKey);

}  // namespace pluginsdk::internal
