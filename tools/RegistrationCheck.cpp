#include "RegistrationCheck.h"

#include <cstring>
#include <string>
#include <unordered_set>

#include "UpdatePluginJson.h"

namespace tool {

using pluginsdk::internal::JsonPtr;

namespace {

// Stand in for members that a rule is not about.
constexpr const char* kSomeName = "n";
constexpr const char* kSomeText = "t";

constexpr int kTextOrNumber = cJSON_String | cJSON_Number;

// The library adds the collections that it is given as they are, of whatever type.
constexpr Field kParamsFields[] = {{"appGUID", kText, kRequired},
                                   {"epoch", kText, kRequired},
                                   {"appName", kText},
                                   {"displayName", kText},
                                   {"type", kText},
                                   {"version", kText},
                                   {"startCommand", kText},
                                   {"stopCommand", kText},
                                   {"modules", kAnything, kOptional, cJSON_Array}};
constexpr Field kModuleFields[] = {{"moduleName", kText},
                                   {"displayName", kText},
                                   {"description", kText},
                                   {"properties", kAnything, kOptional, cJSON_Array},
                                   {"states", kAnything, kOptional, cJSON_Array},
                                   {"events", kAnything, kOptional, cJSON_Array},
                                   {"metrics", kAnything, kOptional, cJSON_Array},
                                   {"commands", kAnything, kOptional, cJSON_Array},
                                   {"alarms", kAnything, kOptional, cJSON_Array}};
constexpr Field kPropertyFields[] = {{"name", kText},        {"displayName", kText},
                                     {"description", kText}, {"displayCategory", kText},
                                     {"displayType", kText}, {"value", kAnything}};
constexpr Field kStateFields[] = {{"name", kText},
                                  {"displayName", kText},
                                  {"description", kText},
                                  {"displayCategory", kText},
                                  {"displayType", kText}};
constexpr Field kMetricFields[] = {{"name", kText},        {"displayName", kText},
                                   {"description", kText}, {"displayCategory", kText},
                                   {"displayUnit", kText}, {"displayType", kText}};
constexpr Field kEventFields[] = {
    {"name", kText}, {"displayName", kText}, {"description", kText}, {"displayCategory", kText}};
constexpr Field kCommandFields[] = {{"name", kText},
                                    {"displayName", kText},
                                    {"description", kText},
                                    {"displayCategory", kText},
                                    {"type", kText, kRequired},
                                    {"params", kAnything, kOptional, cJSON_Array},
                                    {"displayOnProperty", kAnything}};
constexpr Field kAlarmFields[] = {{"name", kText},
                                  {"displayName", kText},
                                  {"description", kText},
                                  {"displayCategory", kText},
                                  {"params", kAnything, kOptional, cJSON_Array}};
constexpr Field kCommandParamFields[] = {{"name", kText},
                                         {"displayName", kText},
                                         {"description", kText},
                                         {"displayType", kText},
                                         {"displayFormat", kText},
                                         {"displayValues", kAnything, kOptional, cJSON_Array},
                                         {"valueFromProperty", kText},
                                         {"required", kBoolean, kRequired},
                                         {"defaultValue", kTextOrNumber}};
constexpr Field kAlarmParamFields[] = {{"name", kText},
                                       {"displayName", kText},
                                       {"description", kText},
                                       {"displayType", kText},
                                       {"displayFormat", kText},
                                       {"displayValues", kAnything, kOptional, cJSON_Array},
                                       {"required", kBoolean, kRequired}};

std::string OrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

// ---- Parameters of commands and alarms

struct ParameterText {
  std::string displayType;
  const char* displayFormat;
  bool hasValues;
  std::string valueFromProperty;
  const char* defaultValue;
};

using BuildParameter = cJSON* (*)(const ParameterText&, cJSON* values);

cJSON* BuildCommandParameter(const ParameterText& text, cJSON* values) {
  return CUpdatePluginJson::CreateUpdateCommandParamsItemJson(kSomeName, nullptr, nullptr, text.defaultValue,
                                                              text.displayType, false, text.displayFormat,
                                                              values, text.valueFromProperty);
}

cJSON* BuildAlarmParameter(const ParameterText& text, cJSON* values) {
  return CUpdatePluginJson::CreateUpdateAlarmParamsItemJson(kSomeName, nullptr, nullptr, text.displayType,
                                                            false, text.displayFormat, values);
}

// With empty values in the place of those that are there: a builder asks only whether there are any.
cJSON* Build(BuildParameter build, const ParameterText& text) {
  JsonPtr values(text.hasValues ? cJSON_CreateArray() : nullptr);
  cJSON* const built = build(text, values.get());
  if (cJSON_GetObjectItem(built, "displayValues") != nullptr) values.release();
  return built;
}

// Members that the display type does not ask for: the library would not have written them.
void WarnOfUnused(const Members& members, BuildParameter build, const ParameterText& text,
                  Findings& findings) {
  const JsonPtr built(Build(build, text));
  for (const char* key : {"displayFormat", "displayValues", "valueFromProperty", "defaultValue"}) {
    if (members.Find(key) == nullptr || cJSON_HasObjectItem(built.get(), key) != 0) continue;
    findings.Warn(members.At(key), {"is not written for display type \"" + text.displayType + "\""});
  }
}

// Each rule in turn, while the members that other rules are about are right.
void CheckDisplay(const Members& members, BuildParameter build, Findings& findings) {
  ParameterText text{kSomeText, kSomeText, true, kSomeText, kSomeText};
  const auto isRight = [&](const char* key) {
    if (!members.CanJudge(key)) return false;
    const auto refusal = Refusal([&] { return Build(build, text); });
    if (refusal) findings.Fault(members.At(key), *refusal);
    return !refusal;
  };
  text.displayType = OrEmpty(members.Text("displayType"));
  if (!isRight("displayType")) return;
  text.displayFormat = members.Text("displayFormat");
  if (!isRight("displayFormat")) text.displayFormat = kSomeText;
  text.hasValues = members.Find("displayValues") != nullptr;
  text.valueFromProperty = OrEmpty(members.Text("valueFromProperty"));
  if (!isRight("displayValues")) text.hasValues = true;
  WarnOfUnused(members, build, text, findings);
}

// ---- Items of a module

void CheckBase(const Members& item, Findings& findings) {
  JudgeName(item, "name", findings, AgainstItemName);
  Judge(item, "displayCategory", findings, [](const char* category) {
    return CBasePluginObject::CreateBaseDataItemJson(kSomeName, nullptr, nullptr, category);
  });
}

void CheckParameters(const Members& owner, const Shape& shape, BuildParameter build, Findings& findings) {
  const cJSON* const params = owner.Find("params");
  for (const cJSON* param : Elements(params)) {
    const Members members(param, shape, findings);
    if (!members) continue;
    CheckBase(members, findings);
    CheckDisplay(members, build, findings);
  }
  WarnOfRepeatedNames(params, "name", findings);
}

// As an application would build it: a text goes to one builder, every other value to another.
cJSON* BuildProperty(const std::string& displayType, bool isText) {
  constexpr const char* kNoText = nullptr;
  cJSON* const noTree = nullptr;
  return isText ? CUpdatePluginJson::CreateUpdatePropertiesItemJson(kSomeName, nullptr, nullptr, displayType,
                                                                    nullptr, kNoText)
                : CUpdatePluginJson::CreateUpdatePropertiesItemJson(kSomeName, nullptr, nullptr, displayType,
                                                                    nullptr, noTree);
}

void CheckProperty(const Members& item, Findings& findings) {
  const cJSON* const value = item.Find("value");
  const std::string displayType = OrEmpty(item.Text("displayType"));
  const auto refused = [&](bool isText) {
    return Refusal([&] { return BuildProperty(displayType, isText); });
  };
  if (!item.CanJudge("displayType")) return;
  // Without a value either builder may have made it.
  auto refusal = refused(value == nullptr || cJSON_IsString(value) != 0);
  if (refusal && value == nullptr) refusal = refused(false);
  if (refusal) {
    findings.Fault(item.At("displayType"), *refusal);
  } else if (displayType == DisplayType::table) {
    WarnUnlessUsual(value, cJSON_Array, findings);
  } else if (displayType == DisplayType::link || displayType == DisplayType::valueFromProperty) {
    WarnUnlessUsual(value, cJSON_Object, findings);
  }
}

void CheckState(const Members& item, Findings& findings) {
  Judge(item, "displayType", findings, [](const char* displayType) {
    return CUpdatePluginJson::CreateUpdateStatesItemJson(kSomeName, nullptr, nullptr, OrEmpty(displayType),
                                                         nullptr);
  });
}

void CheckMetric(const Members& item, Findings& findings) {
  Judge(item, "displayUnit", findings, [](const char* unit) {
    return CUpdatePluginJson::CreateUpdateMetricsItemJson(kSomeName, nullptr, nullptr, unit, "", nullptr);
  });
}

void CheckEvent(const Members&, Findings&) {}  // has nothing beyond what all items have

void CheckCommand(const Members& item, Findings& findings) {
  const JsonPtr built(CUpdatePluginJson::CreateUpdateCommandsItemJson(kSomeName, nullptr, nullptr, nullptr,
                                                                      nullptr, nullptr));
  const std::string wanted = CPluginUtil::GetJSONStringFieldValue(built.get(), "type");
  const char* const type = item.Text("type");
  if (type != nullptr && type != wanted) findings.Fault(item.At("type"), {"must be \"" + wanted + "\""});
  CheckParameters(item, kCommandParamFields, BuildCommandParameter, findings);
}

void CheckAlarm(const Members& item, Findings& findings) {
  CheckParameters(item, kAlarmParamFields, BuildAlarmParameter, findings);
}

struct Collection {
  const char* key;
  Shape shape;
  void (*check)(const Members& item, Findings& findings);
};
constexpr Collection kCollections[] = {
    {"properties", kPropertyFields, CheckProperty}, {"states", kStateFields, CheckState},
    {"events", kEventFields, CheckEvent},           {"metrics", kMetricFields, CheckMetric},
    {"commands", kCommandFields, CheckCommand},     {"alarms", kAlarmFields, CheckAlarm}};

// ---- Modules and params

void CheckModule(const cJSON* module, Findings& findings) {
  const Members members(module, kModuleFields, findings);
  if (!members) return;
  JudgeName(members, "moduleName", findings, AgainstModuleName);
  for (const Collection& collection : kCollections) {
    const cJSON* const items = members.Find(collection.key);
    for (const cJSON* node : Elements(items)) {
      const Members item(node, collection.shape, findings);
      if (!item) continue;
      CheckBase(item, findings);
      collection.check(item, findings);
    }
    WarnOfRepeatedNames(items, "name", findings);
  }
}

cJSON* BuildParams(const char* appName, const char* type, const char* version) {
  return CUpdatePluginJson().CreateUpdateParamsObj(appName, nullptr, OrEmpty(type), version, nullptr, nullptr,
                                                   nullptr);
}

}  // namespace

std::vector<Complaint> AgainstItemName(const char* name) {
  return AgainstName(name, [](const char* text) {
    return CBasePluginObject::CreateBaseDataItemJson(text, nullptr, nullptr, nullptr);
  });
}

std::vector<Complaint> AgainstModuleName(const char* name) {
  return AgainstName(name, [](const char* text) {
    return CUpdatePluginJson::CreateUpdateModulesItemJson(text, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                          nullptr, nullptr, nullptr);
  });
}

void WarnOfRepeatedNames(const cJSON* array, const char* key, Findings& findings) {
  std::unordered_set<std::string_view> names;
  for (const cJSON* item : Elements(array)) {
    const cJSON* const node = cJSON_GetObjectItem(item, key);
    const char* const name = cJSON_GetStringValue(node);
    if (name == nullptr || names.insert(name).second) continue;
    findings.Warn({node}, {std::string("a second \"") + name + "\" in the same list"});
  }
}

void CheckSeconds(const Members& members, const char* key, Findings& findings) {
  const char* const text = members.Text(key);
  if (text == nullptr || (*text != '\0' && text[std::strspn(text, "0123456789")] == '\0')) return;
  findings.Fault(members.At(key), {"must be decimal digits: seconds since 1970"});
}

void CheckStamp(const Members& params, Findings& findings) {
  CheckSeconds(params, "epoch", findings);
  const char* const guid = params.Text("appGUID");
  if (guid != nullptr && *guid == '\0') findings.Warn(params.At("appGUID"), {"is empty"});
}

void CheckRegistration(const cJSON* params, Findings& findings) {
  const Members members(params, kParamsFields, findings);
  if (!members) return;
  CheckStamp(members, findings);
  constexpr const char* kSomeVersion = "1.0.0";
  Judge(members, "appName", findings,
        [](const char* name) { return BuildParams(name, kSomeText, kSomeVersion); });
  Judge(members, "type", findings,
        [](const char* type) { return BuildParams(kSomeName, type, kSomeVersion); });
  Judge(members, "version", findings,
        [](const char* version) { return BuildParams(kSomeName, kSomeText, version); });
  const std::string type = OrEmpty(members.Text("type"));
  if (!type.empty() && type != AppType::ib && type != AppType::oob) {
    findings.Warn(members.At("type"), {"is neither \"" + AppType::ib + "\" nor \"" + AppType::oob + "\""});
  }
  const cJSON* const modules = members.Find("modules");
  for (const cJSON* module : Elements(modules)) CheckModule(module, findings);
  WarnOfRepeatedNames(modules, "moduleName", findings);
}

}  // namespace tool
