#include "RequestBuild_internal.h"

#include "JsonBuild_internal.h"
#include "Utl_Log.h"

namespace pluginsdk::internal {

namespace {

constexpr std::size_t kMaxRequestLength = 2048;  // bytes of the indented printing, signature included
constexpr int kSizeError = 2;

void LogMissingEnvelope(const RequestRules& rules) {
  if (rules.logSource == nullptr) return;
  const char* position = cJSON_GetErrorPtr();  // null unless the last parse failed
  UTL_LOGPrint(UTL_LOG_INFO, rules.logSource, rules.logLine, "GetJsonrpcRequest", "%s",
               position == nullptr ? "(null)" : position);
}

// Without an envelope only the access key is still looked at.
void AddMethod(CBasePluginObject& builder, const std::string& api, cJSON* request, bool unformatted) {
  const std::string method = CBasePluginObject::GetAgentPluginApi(builder.m_version, api);
  if (request != nullptr) AddString(request, "method", method);
  if (builder.m_version == ApiVersion::v2) builder.GetSignedRequestJson(method, request, unformatted);
}

// Always the indented printing, whichever one was signed and will be sent.
void CheckSize(const cJSON* request) {
  if (!PrintsLongerThan(request, kMaxRequestLength)) return;
  throw CPluginException("The data size exceeds the maximum name length, i.e. 2048 Bytes.", kSizeError);
}

}  // namespace

cJSON* BuildRequest(CBasePluginObject& builder, const RequestRules& rules, cJSON* params, bool unformatted) {
  JsonPtr request(builder.CBasePluginObject::GetJsonrpcRequest(params));
  if (!request) LogMissingEnvelope(rules);
  const auto giveBackParams = [&] { cJSON_DetachItemViaPointer(request.get(), params); };
  try {
    AddMethod(builder, rules.api, request.get(), unformatted);
    if (rules.limited && request) CheckSize(request.get());
  } catch (const CPluginException& exception) {
    // A request that is too long goes with everything in it; after any other failure the caller, who
    // cannot reach the envelope, still has the params.
    if (exception.getErrorNumber() != kSizeError) giveBackParams();
    throw;
  } catch (...) {
    giveBackParams();
    throw;
  }
  return request.release();
}

cJSON* BuildReportParams(const CBasePluginObject& builder, const std::string& key, cJSON* items) {
  JsonPtr params = NewObject();
  AddString(params.get(), "appGUID", builder.m_appGUID);
  AddEpoch(params.get());
  AddString(params.get(), "moduleName", builder.m_moduleName);
  Attach(params.get(), key.c_str(), items);
  return params.release();
}

}  // namespace pluginsdk::internal
