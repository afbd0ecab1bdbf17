#include "IncomingRequest_internal.h"

#include <string_view>
#include <utility>

#include "JsonHandle_internal.h"

namespace pluginsdk::internal {

namespace {

constexpr std::string_view kMarker = "?authorization=";

bool Contains(const std::string& text, const char* word) {
  return text.find(word) != std::string::npos;
}

// The text that the sender digested: as received, with the method value cut short at its first "?".
std::string UnsignedText(const char* text, const std::string& method) {
  std::string work(text);
  // Throws for the position "not found": that exception is the answer to a method that the sender escaped.
  work.replace(work.find(method), method.size(), method, 0, method.find('?'));
  return work;
}

bool IsSigned(const char* text, const std::string& method, const std::string& accessKey,
              const VerificationLimits* limits) {
  std::string digest;
  if (!CPluginUtil::GetSignDigest(UnsignedText(text, method), &digest)) return false;
  const std::size_t marker = method.rfind(kMarker);
  if (marker == std::string::npos) return false;
  std::string signature = method.substr(marker + kMarker.size());
  if (limits == nullptr) return CPluginUtil::VerifySignature(digest, accessKey, std::move(signature));
  return CPluginUtil::VerifySignatureWithin(digest, accessKey, std::move(signature), *limits);
}

}  // namespace

bool IsAuthentic(const char* text, const std::string& method, const std::string& accessKey,
                 const VerificationLimits* limits) {
  const bool refuseUnsigned = limits != nullptr && limits->refuseUnsigned && !accessKey.empty();
  // The signature belongs to the method, and one in a hundred holds a "v1" by chance: such a request is
  // accepted without a look at its signature, unless unsigned ones are refused.
  if (Contains(method, "v1") && !refuseUnsigned) return true;
  if (accessKey.empty() || !Contains(method, "v2")) return false;
  return IsSigned(text, method, accessKey, limits);
}

void TakeChildren(cJSON* parent, std::list<cJSON*>& owned) {
  std::list<cJSON*> children;
  // The only step that needs memory comes first, while the children still belong to their parent.
  for (cJSON* child : Children(parent)) children.push_back(child);
  for (cJSON* child : children) cJSON_DetachItemViaPointer(parent, child);
  owned.splice(owned.end(), children);
}

}  // namespace pluginsdk::internal
