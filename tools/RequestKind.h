/// @file
/// Which kind of request a document is, by its method or by its members.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <string_view>

namespace tool {

struct RequestKind {
  const std::string& method;   ///< without version and signature
  const char* mark = nullptr;  ///< a member by which params of this kind are known; null for those of none
  bool isLimited = false;      ///< to the size that the library sets for reports
  bool isOfAgent = false;      ///< comes to a plugin, which never sends it
};

/// A method in its parts: "v2/notifyPluginState?authorization=..." has the version "v2", the name
/// "notifyPluginState" and the suffix from the question mark on. Without a slash before that it has no
/// version.
struct MethodParts {
  bool hasVersion = false;
  std::string_view version;
  std::string_view name;
  std::string_view suffix;
};
MethodParts PartsOf(std::string_view method);

/// Whether it has a member of the envelope, "params", "jsonrpc" or "method"; else it is params alone.
bool IsWholeRequest(const cJSON* document);

/// The kind of a method without version and signature, and of params; null when there is none.
const RequestKind* KindOfMethod(std::string_view name);
const RequestKind* KindOfParams(const cJSON* params);

/// The names of all methods, each after `separator`.
std::string KnownMethods(std::string_view separator);

}  // namespace tool
