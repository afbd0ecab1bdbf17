/// @file
/// Internal, not installed: what the parsers of the agent's commands and alarm updates share.
#pragma once

#include <cjson/cJSON.h>

#include <list>
#include <string>

#include "BasePluginObject.h"

namespace pluginsdk::internal {

/// Whether a received request may be trusted. `text` is the request as received, `method` the value of
/// its "method" member. A method that contains "v1" is accepted unverified. Otherwise it must contain
/// "v2", `accessKey` must not be empty, and what follows the last "?authorization=" must be a valid
/// signature of the text in which the first occurrence of `method` is cut short at its first "?".
/// Throws std::out_of_range ("basic_string::replace ...") when a "v2" method with an access key does
/// not occur verbatim in the text, for instance because the sender escaped a character of it.
/// `limits`, when given, bound the signature; when they refuse unsigned requests, a "v1" in the method does
/// not spare it the verification.
bool IsAuthentic(const char* text, const std::string& method, const std::string& accessKey,
                 const VerificationLimits* limits);

/// Moves the children of `parent`, in order, to the end of `owned`, in time linear in their number; each is
/// a tree of its own then, to be freed with cJSON_Delete. A null parent has no children. When this throws
/// std::bad_alloc, nothing was moved.
void TakeChildren(cJSON* parent, std::list<cJSON*>& owned);

}  // namespace pluginsdk::internal
