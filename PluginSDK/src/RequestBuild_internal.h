/// @file
/// Internal, not installed: the steps that the requests and reports of all families share.
#pragma once

#include <string>

#include "BasePluginObject.h"
#include "JsonHandle_internal.h"

namespace pluginsdk::internal {

struct RequestRules {
  const std::string& api;           ///< method constant, without version
  bool limited = false;             ///< refuse a request whose indented printing exceeds 2048 bytes
  const char* logSource = nullptr;  ///< source named in the line about a missing envelope; null: no line
  int logLine = 0;                  ///< line in that source
};

/// Wraps `params` into the envelope, adds the versioned "method", signs under "v2" and checks the size.
/// The result is the caller's and owns `params`. Null when the envelope cannot be allocated: `params`
/// stays the caller's. Throws CPluginException: number 6 (missing access key; the envelope is freed,
/// `params` stays valid and the caller's) and number 2 (too long; request and `params` are deleted).
/// std::bad_alloc leaves `params` with the caller too.
cJSON* BuildRequest(CBasePluginObject& builder, const RequestRules& rules, cJSON* params, bool unformatted);

/// The params of a report: "appGUID", "epoch", "moduleName", then `items` under `key` (attached as
/// given; owned by the result). When this throws std::bad_alloc, `items` stays the caller's.
cJSON* BuildReportParams(const CBasePluginObject& builder, const std::string& key, cJSON* items);

}  // namespace pluginsdk::internal
