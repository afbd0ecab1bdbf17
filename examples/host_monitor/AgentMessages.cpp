#include "AgentMessages.h"

#include <utility>

#include "BasePluginObject.h"

namespace demo {

std::string ComposeRequest(const std::string& version, const std::string& accessKey, const std::string& api,
                           JsonTree params) {
  CBasePluginObject sender;
  sender.m_version = version;
  sender.m_accessKey = accessKey;
  const JsonTree request = Owned(sender.GetJsonrpcRequest(params.get()));
  HandedOver(params);
  const std::string method = CBasePluginObject::GetAgentPluginApi(version, api);
  AttachText(request, "method", method);
  if (version == ApiVersion::v2) {
    sender.GetSignedRequestJson(method, request.get(), true);
  }
  return Compact(request.get());
}

JsonTree Setting(const std::string& name, const char* param, const std::string& value) {
  JsonTree entry = Owned(cJSON_CreateObject());
  AttachText(entry, "name", param);
  AttachText(entry, "value", value);
  JsonTree params = Owned(cJSON_CreateArray());
  Append(params, std::move(entry));
  JsonTree setting = Owned(cJSON_CreateObject());
  AttachText(setting, "name", name);
  Attach(setting, "params", std::move(params));
  return setting;
}

JsonTree CommandParams(const std::string& commandId, const std::string& moduleName, JsonTree commands) {
  JsonTree params = Owned(cJSON_CreateObject());
  AttachText(params, "commandId", commandId);
  AttachText(params, "commandSource", "remote");
  AttachText(params, "moduleName", moduleName);
  Attach(params, "commands", std::move(commands));
  return params;
}

JsonTree AlarmParams(const std::string& moduleName, std::time_t epoch, JsonTree alarms) {
  JsonTree module = Owned(cJSON_CreateObject());
  AttachText(module, "moduleName", moduleName);
  AttachText(module, "epoch", std::to_string(epoch));
  Attach(module, "alarms", std::move(alarms));
  JsonTree modules = Owned(cJSON_CreateArray());
  Append(modules, std::move(module));
  JsonTree params = Owned(cJSON_CreateObject());
  AttachText(params, "version", "1");
  Attach(params, "modules", std::move(modules));
  return params;
}

}  // namespace demo
