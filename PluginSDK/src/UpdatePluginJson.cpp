#include "UpdatePluginJson.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>

#include "JsonBuild_internal.h"
#include "RequestBuild_internal.h"
#include "Utl_Log.h"

namespace DisplayType {
const std::string string = "string";
const std::string table = "table";
const std::string link = "link";
const std::string datetime = "datetime";
const std::string iswitch = "switch";
const std::string icheckbox = "checkbox";
const std::string ilist = "list";
const std::string file = "file";
const std::string temperature = "temperature";
const std::string displayOn = "displayOn";
const std::string valueFromProperty = "valueFromProperty";
}  // namespace DisplayType

namespace DataTypes {
const std::string properties = "properties";
const std::string states = "states";
const std::string events = "events";
const std::string metrics = "metrics";
const std::string commands = "commands";
const std::string alarms = "alarms";
}  // namespace DataTypes

namespace AppType {
const std::string ib = "ib";
const std::string oob = "oob";
}  // namespace AppType

using namespace pluginsdk::internal;

namespace {

constexpr const char* kSource = "PluginSDK/src/UpdatePluginJson";
constexpr std::size_t kMaxModuleNameLength = 64;  // bytes; twice the limit of item names

// Error numbers of the rules that this file enforces; the classes stand with CPluginException.
constexpr int kFormatError = 1;
constexpr int kSizeError = 2;
constexpr int kDescriptionError = 4;
constexpr int kCommandError = 5;

void Require(bool present, const char* message, int number = kDescriptionError) {
  if (!present) throw CPluginException(message, number);
}

// Trees of the caller, attached to an object under construction. Unless the object is finished they are
// taken out again, so that the caller still holds them after an exception and the object does not free them.
class ArgumentLoan {
 public:
  explicit ArgumentLoan(cJSON* object) : m_object(object) {}
  ArgumentLoan(const ArgumentLoan&) = delete;
  ArgumentLoan& operator=(const ArgumentLoan&) = delete;
  ~ArgumentLoan() {
    for (std::size_t i = 0; i < m_count; ++i) cJSON_DetachItemViaPointer(m_object, m_trees[i]);
  }

  void Add(const char* key, cJSON* tree) {
    if (tree == nullptr) return;
    Attach(m_object, key, tree);
    m_trees[m_count++] = tree;
  }
  void Keep() { m_count = 0; }

 private:
  cJSON* m_object;
  std::array<cJSON*, 6> m_trees{};  // as many as a module has collections, the most of any object
  std::size_t m_count = 0;
};

// Every item is complete with its last tree: hands out `item`, which owns the trees from here on.
cJSON* Finish(JsonPtr& item, ArgumentLoan& loan) {
  loan.Keep();
  return item.release();
}

JsonPtr BaseItem(const char* name, const char* displayName, const char* description,
                 const char* displayCategory) {
  return JsonPtr(CBasePluginObject::CreateBaseDataItemJson(name, displayName, description, displayCategory));
}

void AddDisplayType(cJSON* item, const std::string& displayType) {
  Require(!displayType.empty(), "displayType is required parameter.");
  AddString(item, "displayType", displayType);
}

// ---- Properties

// Names of the vocabulary rather than copies of them: they are read when an item is built, not before.
using DisplayTypes = std::initializer_list<const std::string*>;

bool Contains(DisplayTypes types, const std::string& wanted) {
  for (const std::string* type : types) {
    if (*type == wanted) return true;
  }
  return false;
}

JsonPtr PropertyItem(JsonPtr item, const std::string& displayType, DisplayTypes accepted) {
  Require(!displayType.empty(), "displayType is required parameter.");
  Require(Contains(accepted, displayType), "displayType is inconsistant its value.");
  AddString(item.get(), "displayType", displayType);
  return item;
}

// ---- Parameters of commands and alarms

struct Parameter {
  const char* name;
  const char* displayName;
  const char* description;
  const std::string& displayType;
  bool required;
  const char* displayFormat;
  cJSON* displayValues;
};

// Where the parameters of commands and those of alarms differ.
struct ParameterRules {
  const char* missingFormat;
  int errorNumber;
  bool takesProperty;  // a property may supply the values
};
constexpr ParameterRules kCommandRules = {"displayFormat is required parameter for datetime displayType.",
                                          kCommandError, true};
constexpr ParameterRules kAlarmRules = {"displayFormat is required for datetime displayType.",
                                        kDescriptionError, false};

bool OffersValues(const std::string& displayType) {
  return Contains({&DisplayType::icheckbox, &DisplayType::iswitch, &DisplayType::ilist}, displayType);
}

void AddValues(cJSON* item, ArgumentLoan& loan, const Parameter& parameter, const ParameterRules& rules,
               const std::string& property) {
  if (parameter.displayValues != nullptr) {
    loan.Add("displayValues", parameter.displayValues);
    return;
  }
  if (!rules.takesProperty || property.empty()) {
    throw CPluginException(
        "displayValues is required parameter for " + parameter.displayType + " displayType.",
        rules.errorNumber);
  }
  AddString(item, "valueFromProperty", property);
}

void AddTypeDetails(cJSON* item, ArgumentLoan& loan, const Parameter& parameter, const ParameterRules& rules,
                    const std::string& property) {
  if (parameter.displayType == DisplayType::datetime) {
    Require(parameter.displayFormat != nullptr, rules.missingFormat, rules.errorNumber);
    AddString(item, "displayFormat", parameter.displayFormat);
  } else if (OffersValues(parameter.displayType)) {
    AddValues(item, loan, parameter, rules, property);
  } else if (rules.takesProperty && parameter.displayType == DisplayType::valueFromProperty) {
    AddString(item, "valueFromProperty", property);
  }
}

void AddDefault(cJSON* item, const char* value) {
  AddString(item, "defaultValue", value);
}
void AddDefault(cJSON* item, double value) {
  AddNumber(item, "defaultValue", value);
}

constexpr const char* kNoDefault = nullptr;

template <typename Default>
cJSON* BuildParameter(const ParameterRules& rules, const Parameter& parameter, const std::string& property,
                      Default defaultValue) {
  JsonPtr item = BaseItem(parameter.name, parameter.displayName, parameter.description, nullptr);
  ArgumentLoan loan(item.get());
  AddDisplayType(item.get(), parameter.displayType);
  AddTypeDetails(item.get(), loan, parameter, rules, property);
  AddBool(item.get(), "required", parameter.required);
  if (parameter.displayType != DisplayType::file) AddDefault(item.get(), defaultValue);
  return Finish(item, loan);
}

// ---- Modules and params

// Matched with logging on, so that the log names the format.
bool Matches(const char* text, const std::string& format) {
  return CPluginUtil::RegExMatch(text, format, true);
}

void CheckModuleName(const char* name) {
  Require(name != nullptr, "moduleName is required parameter.");
  if (std::strlen(name) > kMaxModuleNameLength) {
    throw CPluginException(
        std::string("The length of \"") + name + "\" exceeds the maximum module name length, i.e. 64 Bytes.",
        kSizeError);
  }
  if (Matches(name, StringFormatter::nameFormat)) return;
  throw CPluginException(std::string("Invalid moduleName format: \"") + name + "\"", kFormatError);
}

void CheckApplication(const char* appName, const std::string& type, const char* version) {
  Require(appName != nullptr, "appName is required parameter.");
  if (!Matches(appName, StringFormatter::nameFormat)) {
    throw CPluginException(std::string("Invalid appName format: ") + appName, kFormatError);
  }
  Require(!type.empty(), "appType is required parameter.");
  Require(version != nullptr, "version is required parameter.");
  if (!Matches(version, StringFormatter::versionFormat)) {
    throw CPluginException(std::string("Invalid version format: ") + version, kFormatError);
  }
}

// Gives the params of a stored request the current time. Somebody may have taken "epoch" out of the public
// tree; then there is nothing to set.
void RenewEpoch(cJSON* params) {
  char now[32];
  std::snprintf(now, sizeof now, "%ld", static_cast<long>(std::time(nullptr)));
  cJSON* epoch = cJSON_GetObjectItem(params, "epoch");
  if (cJSON_GetStringValue(epoch) != nullptr && cJSON_SetValuestring(epoch, now) == nullptr) {
    throw std::bad_alloc();
  }
  UTL_LOGPrint(UTL_LOG_INFO, kSource, __LINE__, "RenewUpdateJsonObject", "renew epoch: %s",
               CPluginUtil::GetJSONStringFieldValue(params, "epoch").c_str());
}

}  // namespace

CUpdatePluginJson::CUpdatePluginJson() = default;

CUpdatePluginJson::~CUpdatePluginJson() {
  cJSON_Delete(m_request);
}

cJSON* CUpdatePluginJson::CreateUpdatePropertiesItemJson(const char* name, const char* displayName,
                                                         const char* description,
                                                         const std::string& displayType,
                                                         const char* displayCategory, const char* value) {
  JsonPtr item = PropertyItem(BaseItem(name, displayName, description, displayCategory), displayType,
                              {&DisplayType::string, &DisplayType::displayOn});
  AddString(item.get(), "value", value);
  return item.release();
}

cJSON* CUpdatePluginJson::CreateUpdatePropertiesItemJson(const char* name, const char* displayName,
                                                         const char* description,
                                                         const std::string& displayType,
                                                         const char* displayCategory, cJSON* value) {
  JsonPtr item = PropertyItem(BaseItem(name, displayName, description, displayCategory), displayType,
                              {&DisplayType::table, &DisplayType::link, &DisplayType::valueFromProperty});
  Attach(item.get(), "value", value);
  return item.release();
}

cJSON* CUpdatePluginJson::CreateUpdateStatesItemJson(const char* name, const char* displayName,
                                                     const char* description, const std::string& displayType,
                                                     const char* displayCategory) {
  JsonPtr item = BaseItem(name, displayName, description, displayCategory);
  AddDisplayType(item.get(), displayType);
  return item.release();
}

cJSON* CUpdatePluginJson::CreateUpdateEventsItemJson(const char* name, const char* displayName,
                                                     const char* description, const char* displayCategory) {
  return CreateBaseDataItemJson(name, displayName, description, displayCategory);
}

cJSON* CUpdatePluginJson::CreateUpdateMetricsItemJson(const char* name, const char* displayName,
                                                      const char* description, const char* displayUnit,
                                                      const std::string& displayType,
                                                      const char* displayCategory) {
  JsonPtr item = BaseItem(name, displayName, description, displayCategory);
  Require(displayUnit != nullptr, "displayUnit is required parameter.");
  AddString(item.get(), "displayUnit", displayUnit);
  if (!displayType.empty()) AddString(item.get(), "displayType", displayType);
  return item.release();
}

cJSON* CUpdatePluginJson::CreateUpdateCommandsItemJson(const char* name, const char* displayName,
                                                       const char* description, const char* displayCategory,
                                                       cJSON* params, cJSON* displayOnProperty) {
  JsonPtr item = BaseItem(name, displayName, description, displayCategory);
  AddString(item.get(), "type", "asynchronous");
  ArgumentLoan loan(item.get());
  loan.Add("params", params);
  loan.Add("displayOnProperty", displayOnProperty);
  return Finish(item, loan);
}

cJSON* CUpdatePluginJson::CreateUpdateAlarmsItemJson(const char* name, const char* displayName,
                                                     const char* description, const char* displayCategory,
                                                     cJSON* params) {
  JsonPtr item = BaseItem(name, displayName, description, displayCategory);
  Attach(item.get(), "params", params);
  return item.release();
}

cJSON* CUpdatePluginJson::CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                            const char* description,
                                                            const std::string& displayType, bool required,
                                                            const char* displayFormat, cJSON* displayValues,
                                                            const std::string& valueFromProperty) {
  return CreateUpdateCommandParamsItemJson(name, displayName, description, kNoDefault, displayType, required,
                                           displayFormat, displayValues, valueFromProperty);
}

cJSON* CUpdatePluginJson::CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                            const char* description, const char* defaultValue,
                                                            const std::string& displayType, bool required,
                                                            const char* displayFormat, cJSON* displayValues,
                                                            const std::string& valueFromProperty) {
  return BuildParameter(kCommandRules,
                        {name, displayName, description, displayType, required, displayFormat, displayValues},
                        valueFromProperty, defaultValue);
}

cJSON* CUpdatePluginJson::CreateUpdateCommandParamsItemJson(const char* name, const char* displayName,
                                                            const char* description, double defaultValue,
                                                            const std::string& displayType, bool required,
                                                            const char* displayFormat, cJSON* displayValues,
                                                            const std::string& valueFromProperty) {
  return BuildParameter(kCommandRules,
                        {name, displayName, description, displayType, required, displayFormat, displayValues},
                        valueFromProperty, defaultValue);
}

cJSON* CUpdatePluginJson::CreateUpdateAlarmParamsItemJson(const char* name, const char* displayName,
                                                          const char* description,
                                                          const std::string& displayType, bool required,
                                                          const char* displayFormat, cJSON* displayValues) {
  return BuildParameter(kAlarmRules,
                        {name, displayName, description, displayType, required, displayFormat, displayValues},
                        std::string(), kNoDefault);
}

cJSON* CUpdatePluginJson::CreateUpdateModulesItemJson(const char* moduleName, const char* displayName,
                                                      const char* description, cJSON* properties,
                                                      cJSON* states, cJSON* events, cJSON* metrics,
                                                      cJSON* commands, cJSON* alarms) {
  CheckModuleName(moduleName);
  JsonPtr item = NewObject();
  AddString(item.get(), "moduleName", moduleName);
  AddString(item.get(), "displayName", displayName);
  AddString(item.get(), "description", description);
  ArgumentLoan loan(item.get());
  loan.Add(DataTypes::properties.c_str(), properties);
  loan.Add(DataTypes::states.c_str(), states);
  loan.Add(DataTypes::events.c_str(), events);
  loan.Add(DataTypes::metrics.c_str(), metrics);
  loan.Add(DataTypes::commands.c_str(), commands);
  loan.Add(DataTypes::alarms.c_str(), alarms);
  return Finish(item, loan);
}

cJSON* CUpdatePluginJson::CreateUpdateParamsObj(const char* appName, const char* displayName,
                                                const std::string& type, const char* version,
                                                const char* startCommand, const char* stopCommand,
                                                cJSON* modules) {
  CheckApplication(appName, type, version);
  JsonPtr params = NewObject();
  AddString(params.get(), "appGUID", m_appGUID);
  AddEpoch(params.get());
  AddString(params.get(), "appName", appName);
  AddString(params.get(), "displayName", displayName);
  AddString(params.get(), "type", type);
  AddString(params.get(), "version", version);
  AddString(params.get(), "startCommand", startCommand);
  AddString(params.get(), "stopCommand", stopCommand);
  Attach(params.get(), "modules", modules);
  return params.release();
}

cJSON* CUpdatePluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  return BuildRequest(*this, {AgentPluginApi::notifyPluginUpdate}, params, unformatted);
}

cJSON* CUpdatePluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}

cJSON* CUpdatePluginJson::RenewUpdateJsonObject(bool unformatted) {
  cJSON* stored = cJSON_GetObjectItem(m_request, "params");
  if (stored == nullptr) return nullptr;
  RenewEpoch(stored);
  JsonPtr params(cJSON_Duplicate(stored, true));
  if (!params) throw std::bad_alloc();
  cJSON* request = GetJsonrpcRequest(params.get(), unformatted);
  if (request != nullptr) params.release();
  return request;
}
