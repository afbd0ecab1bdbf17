#include "AgentChecks.h"

#include <charconv>

#include "AlertsPluginJson.h"
#include "BasePluginObject.h"
#include "CommandAcksPluginJson.h"
#include "UpdatePluginJson.h"

namespace demo {
namespace {

const std::string kMarker = "?authorization=";

std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

/// The text that was signed is the text that was received, with the method cut at its first "?".
bool IsSigned(const std::string& text, const std::string& method, const std::string& accessKey) {
  const std::size_t place = text.find(method);
  const std::size_t marker = method.rfind(kMarker);
  if (place == std::string::npos || marker == std::string::npos) {
    return false;
  }
  std::string signedText = text;
  signedText.replace(place, method.size(), method, 0, method.find('?'));
  std::string digest;
  // The limits refuse a signature that asks for gigabytes of memory before any of it is spent.
  return CPluginUtil::GetSignDigest(signedText, &digest) &&
         CPluginUtil::VerifySignatureWithin(digest, accessKey, method.substr(marker + kMarker.size()),
                                            VerificationLimits());
}

/// -1 for a text that is no time in seconds.
long EpochOf(const cJSON* params) {
  const std::string text = TextOf(params, "epoch");
  long epoch = -1;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), epoch);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() ? epoch : -1;
}

/// Whether a value is a table: an array of objects, each with a name.
bool IsTable(const cJSON* value) {
  const cJSON* row = nullptr;
  cJSON_ArrayForEach(row, value) {
    if (!cJSON_IsObject(row) || TextOf(row, "name").empty()) {
      return false;
    }
  }
  return cJSON_IsArray(value);
}

bool IsStateValue(const cJSON* item, const std::string& displayType) {
  const cJSON* value = cJSON_GetObjectItem(item, "value");
  return displayType == DisplayType::table ? IsTable(value) : cJSON_IsString(value) != 0;
}

bool IsMetricValue(const cJSON* item, const std::string& /*metrics are numbers, however displayed*/) {
  return cJSON_IsNumber(cJSON_GetObjectItem(item, "value")) != 0;
}

bool IsEventValue(const cJSON* item, const std::string& /*events have no display type*/) {
  return cJSON_IsString(cJSON_GetObjectItem(item, "value")) != 0;
}

bool IsAlert(const cJSON* item, const std::string& /*alarms have no display type*/) {
  const std::string action = TextOf(item, "action");
  return action == Action::trigger || action == Action::resolve;
}

/// Messages whose items have been declared under the same key as they are reported.
struct ReportKind {
  const std::string& kind;
  const std::string& collection;
  bool (*fits)(const cJSON* item, const std::string& displayType);
};

const ReportKind* FindReport(const std::string& kind) {
  static const ReportKind kinds[] = {
      {AgentPluginApi::notifyPluginState, DataTypes::states, IsStateValue},
      {AgentPluginApi::notifyPluginMetric, DataTypes::metrics, IsMetricValue},
      {AgentPluginApi::notifyPluginEvent, DataTypes::events, IsEventValue},
      {AgentPluginApi::notifyPluginAlert, DataTypes::alarms, IsAlert},
  };
  for (const ReportKind& entry : kinds) {
    if (entry.kind == kind) {
      return &entry;
    }
  }
  return nullptr;
}

std::string CheckAcknowledgement(const cJSON* params) {
  const std::string state = TextOf(params, "commandState");
  for (const std::string* known :
       {&AckState::ACCEPTED, &AckState::ACKED, &AckState::REJECTED, &AckState::ERRORED}) {
    if (state == *known) {
      return "";
    }
  }
  return "no such command state: " + Quoted(state);
}

}  // namespace

std::string TextOf(const cJSON* object, const char* key) {
  const cJSON* member = cJSON_GetObjectItem(object, key);
  return cJSON_IsString(member) ? member->valuestring : "";
}

Examined Examine(const std::string& text, const std::string& version, const std::string& accessKey) {
  Examined result;
  // A zero byte would end the text for the parser, but not for the digest.
  result.request.reset(text.find('\0') == std::string::npos ? cJSON_Parse(text.c_str()) : nullptr);
  if (result.request == nullptr) {
    result.refusal = "not JSON";
    return result;
  }
  const std::string method = TextOf(result.request.get(), "method");
  const std::string unsignedMethod = method.substr(0, method.find('?'));
  result.kind = unsignedMethod.substr(unsignedMethod.find('/') + 1);
  result.params = cJSON_GetObjectItem(result.request.get(), "params");
  if (unsignedMethod != CBasePluginObject::GetAgentPluginApi(version, result.kind)) {
    result.refusal = "not of version " + version;
  } else if (!cJSON_IsObject(result.params)) {
    result.refusal = "no params";
  } else if (version == ApiVersion::v2 && !IsSigned(text, method, accessKey)) {
    result.refusal = "its signature does not match its text";
  }
  return result;
}

bool Registration::Take(const cJSON* params, std::string* outcome) {
  Modules modules;
  const cJSON* description = nullptr;
  cJSON_ArrayForEach(description, cJSON_GetObjectItem(params, "modules")) {
    *outcome = ReadModule(description, &modules);
    if (!outcome->empty()) {
      return false;
    }
  }
  const JsonTree timeless = Owned(cJSON_Duplicate(params, true));
  cJSON_DeleteItemFromObject(timeless.get(), "epoch");
  const std::string printed = Compact(timeless.get());
  const long epoch = EpochOf(params);
  if (epoch < 0 || (printed == m_description && epoch <= m_epoch)) {
    *outcome = "the time is not newer than that of the registration before";
    return false;
  }
  *outcome = m_description.empty() ? "registered" : printed == m_description ? "renewed" : "changed";
  m_modules = std::move(modules);
  m_appGUID = TextOf(params, "appGUID");
  m_description = printed;
  m_epoch = epoch;
  return true;
}

/// Reads one module into the map; returns what is wrong with it.
std::string Registration::ReadModule(const cJSON* description, Modules* modules) {
  const std::string name = TextOf(description, "moduleName");
  if (name.empty() || modules->count(name) != 0) {
    return "a module without a name of its own: " + Quoted(name);
  }
  Module& module = (*modules)[name];
  for (const std::string* key : {&DataTypes::properties, &DataTypes::states, &DataTypes::metrics,
                                 &DataTypes::events, &DataTypes::commands, &DataTypes::alarms}) {
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(description, key->c_str())) {
      const std::string itemName = TextOf(item, "name");
      if (!CPluginUtil::RegExMatch(itemName.c_str(), StringFormatter::nameFormat, true)) {
        return "not a name: " + Quoted(itemName);
      }
      module.items[*key][itemName] = TextOf(item, "displayType");
      if (*key != DataTypes::commands) {
        continue;
      }
      const cJSON* param = nullptr;
      cJSON_ArrayForEach(param, cJSON_GetObjectItem(item, "params")) {
        module.commandParams[itemName].insert(TextOf(param, "name"));
      }
    }
  }
  return "";
}

std::string Registration::Check(const std::string& kind, const cJSON* params) const {
  const std::string moduleName = TextOf(params, "moduleName");
  const auto module = m_modules.find(moduleName);
  if (TextOf(params, "appGUID") != m_appGUID || m_appGUID.empty()) {
    return "not from the plugin that registered";
  }
  if (module == m_modules.end()) {
    return "module " + Quoted(moduleName) + " is not declared";
  }
  if (EpochOf(params) < 0) {
    return "no time";
  }
  if (kind == AgentPluginApi::notifyPluginCommandAck) {
    return CheckAcknowledgement(params);
  }
  if (kind == AgentPluginApi::notifyPluginLocalCommand) {
    return CheckLocalCommands(params, module->second);
  }
  return CheckReport(kind, params, module->second);
}

std::string Registration::CheckReport(const std::string& kind, const cJSON* params, const Module& module) {
  const ReportKind* report = FindReport(kind);
  if (report == nullptr) {
    return "not a message of a plugin";
  }
  const auto declared = module.items.find(report->collection);
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, cJSON_GetObjectItem(params, report->collection.c_str())) {
    const std::string name = TextOf(item, "name");
    if (declared == module.items.end() || declared->second.count(name) == 0) {
      return Quoted(name) + " is not declared among the " + report->collection;
    }
    if (!report->fits(item, declared->second.at(name))) {
      return "the value of " + Quoted(name) + " is not of its declared type";
    }
  }
  return "";
}

std::string Registration::CheckLocalCommands(const cJSON* params, const Module& module) {
  const auto declared = module.items.find(DataTypes::commands);
  const cJSON* command = nullptr;
  cJSON_ArrayForEach(command, cJSON_GetObjectItem(params, "commands")) {
    const std::string name = TextOf(command, "name");
    if (declared == module.items.end() || declared->second.count(name) == 0) {
      return Quoted(name) + " is not declared among the commands";
    }
    const auto known = module.commandParams.find(name);
    const cJSON* param = nullptr;
    cJSON_ArrayForEach(param, cJSON_GetObjectItem(command, "params")) {
      const std::string paramName = TextOf(param, "name");
      if (known == module.commandParams.end() || known->second.count(paramName) == 0) {
        return Quoted(paramName) + " is not declared among the parameters of " + Quoted(name);
      }
    }
  }
  return "";
}

}  // namespace demo
