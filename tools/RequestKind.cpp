#include "RequestKind.h"

#include <algorithm>

#include "BasePluginObject.h"

namespace tool {

namespace {

constexpr bool kLimited = true;
constexpr bool kOfAgent = true;

// In the order in which marks are looked for: the first three stand in params of one kind only.
const RequestKind kKinds[] = {
    {AgentPluginApi::notifyPluginCommandAck, "commandState"},
    {AgentPluginApi::notifyPluginLocalCommand, "clientAppGUID"},
    {AgentPluginApi::notifyPluginUpdate, "appName"},
    {AgentPluginApi::notifyPluginState, "states", kLimited},
    {AgentPluginApi::notifyPluginMetric, "metrics", kLimited},
    {AgentPluginApi::notifyPluginEvent, "events", kLimited},
    {AgentPluginApi::notifyPluginAlert, "alarms"},
    {AgentPluginApi::notifyPluginUpdate, "modules"},  // the name of the application may be forgotten
    {AgentPluginApi::notifyPluginCommand, nullptr, !kLimited, kOfAgent},
    {AgentPluginApi::notifyPluginAlarmUpdate, nullptr, !kLimited, kOfAgent},
    {AgentPluginApi::notifyAgentEvent, nullptr, !kLimited, kOfAgent},
};

}  // namespace

MethodParts PartsOf(std::string_view method) {
  MethodParts parts;
  const std::size_t suffix = std::min(method.find('?'), method.size());
  parts.suffix = method.substr(suffix);
  parts.name = method.substr(0, suffix);
  const std::size_t slash = parts.name.find('/');
  if (slash == std::string_view::npos) return parts;
  parts.hasVersion = true;
  parts.version = parts.name.substr(0, slash);
  parts.name.remove_prefix(slash + 1);
  return parts;
}

bool IsWholeRequest(const cJSON* document) {
  constexpr const char* kMembers[] = {"jsonrpc", "params", "method"};
  return std::any_of(std::begin(kMembers), std::end(kMembers),
                     [=](const char* key) { return cJSON_HasObjectItem(document, key) != 0; });
}

const RequestKind* KindOfMethod(std::string_view name) {
  for (const RequestKind& kind : kKinds) {
    if (kind.method == name) return &kind;
  }
  return nullptr;
}

const RequestKind* KindOfParams(const cJSON* params) {
  for (const RequestKind& kind : kKinds) {
    if (kind.mark != nullptr && cJSON_HasObjectItem(params, kind.mark) != 0) return &kind;
  }
  return nullptr;
}

std::string KnownMethods(std::string_view separator) {
  std::string known;
  for (const RequestKind& kind : kKinds) {
    if (KindOfMethod(kind.method) == &kind) known.append(separator).append(kind.method);
  }
  return known;
}

}  // namespace tool
