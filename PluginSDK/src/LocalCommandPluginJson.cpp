#include "LocalCommandPluginJson.h"

#include <cstdlib>

#include "JsonBuild_internal.h"
#include "RequestBuild_internal.h"

namespace CommandSource {
const std::string local = "local";
const std::string remote = "remote";
}  // namespace CommandSource

using namespace pluginsdk::internal;

namespace {

constexpr const char* kSource = "PluginSDK/src/LocalCommandPluginJson";

void RequireParameter(bool fulfilled, const char* message) {
  constexpr int kCommandError = 5;
  if (!fulfilled) throw CPluginException(message, kCommandError);
}

}  // namespace

cJSON* CLocalCommandPluginJson::CreateLocalCommandParamsObj(char const* clientAppGUID,
                                                            char const* serialNumber, char const* appGUID,
                                                            char const* commandId, char const* commandSource,
                                                            char const* moduleName, cJSON* commands) {
  JsonPtr params = NewObject();
  AddEpoch(params.get());
  AddString(params.get(), "clientAppGUID", clientAppGUID);
  AddString(params.get(), "serialNumber", serialNumber);
  AddString(params.get(), "appGUID", appGUID);
  AddString(params.get(), "commandId", commandId);
  AddString(params.get(), "commandSource", commandSource);
  AddString(params.get(), "moduleName", moduleName);
  AttachIfUsable(params.get(), "commands", commands);
  return params.release();
}

cJSON* CLocalCommandPluginJson::CreateLocalCommandParamsObj(cJSON* commands) {
  const std::string commandId = m_clientAppGUID + "|" + std::to_string(std::rand() / 1000 + 1);
  return CreateLocalCommandParamsObj(m_clientAppGUID.c_str(), m_serialNumber.c_str(), m_appGUID.c_str(),
                                     commandId.c_str(), CommandSource::local.c_str(), m_moduleName.c_str(),
                                     commands);
}

cJSON* CLocalCommandPluginJson::CreateCommandsItemJson(char const* name, cJSON* params) {
  RequireParameter(name != nullptr, "name is NULL");
  RequireParameter(params != nullptr, "params is NULL");
  RequireParameter(cJSON_IsArray(params) != 0, "params is not a JSON array.");

  JsonPtr item = NewObject();
  AddString(item.get(), "name", name);
  Attach(item.get(), "params", params);
  return item.release();
}

cJSON* CLocalCommandPluginJson::CreateCommandParamsItemJson(char const* name, char const* value) {
  return CreateBaseValueItemJson(name, value);
}

cJSON* CLocalCommandPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  constexpr bool kLimited = false;
  return BuildRequest(*this, {AgentPluginApi::notifyPluginLocalCommand, kLimited, kSource, __LINE__}, params,
                      unformatted);
}

cJSON* CLocalCommandPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}
