#include "RequestCheck.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "AlertsPluginJson.h"
#include "CommandAcksPluginJson.h"
#include "LocalCommandPluginJson.h"
#include "Members.h"
#include "RegistrationCheck.h"
#include "RequestKind.h"
#include "StatesPluginJson.h"
#include "UpdatePluginJson.h"

namespace tool {

using pluginsdk::internal::Children;
using pluginsdk::internal::JsonPtr;
using pluginsdk::internal::JsonText;

namespace {

constexpr const char* kSomeName = "n";
constexpr const char* kSomeText = "t";

// ---- Values of states, metrics and events

constexpr Field kStateFields[] = {{"name", kText}, {"value", kAnything}};
constexpr Field kMetricFields[] = {{"name", kText}, {"value", cJSON_Number, kRequired}};
constexpr Field kEventFields[] = {{"name", kText}, {"value", kText}};

void CheckTextValue(const Members& item, Findings& findings) {
  Judge(item, "value", findings,
        [](const char* value) { return CBasePluginObject::CreateBaseValueItemJson(kSomeName, value); });
}

// Without its headers: the library leaves those alone in an array that refers to the elements of another.
cJSON* BuildTree(const char* name, const cJSON* value) {
  JsonPtr reference(cJSON_IsArray(value) ? cJSON_CreateArrayReference(value->child)
                                         : cJSON_CreateObjectReference(value->child));
  cJSON* const item = CBasePluginObject::CreateBaseValueItemJson(name, reference.get());
  reference.release();
  return item;
}

cJSON* BuildTable(const std::string& header) {
  JsonPtr table(cJSON_CreateArray());
  cJSON* const row = cJSON_CreateObject();
  cJSON_AddItemToArray(table.get(), row);
  cJSON_AddStringToObject(row, "name", header.c_str());
  cJSON* const item = CBasePluginObject::CreateBaseValueItemJson(kSomeName, table.get());
  table.release();
  return item;
}

// The library weighs the table first, so a header that is as long as a table is judged by its front.
std::optional<Complaint> AgainstHeader(const std::string& header) {
  constexpr std::size_t kFront = 160;  // too long for a header; short for a table with every byte escaped
  const std::string front = header.substr(0, kFront);
  auto refusal = Refusal([&] { return BuildTable(front); });
  if (refusal && front != header) refusal->text.replace(refusal->text.find(front), kFront, header);
  return refusal;
}

void CheckTreeValue(const Members& item, Findings& findings) {
  const cJSON* const value = item.Find("value");
  if (!cJSON_IsArray(value) && !cJSON_IsObject(value)) return;  // no other value is long
  const char* const name = item.Text("name") == nullptr ? "" : item.Text("name");
  if (auto tooLarge = Refusal([&] { return BuildTree(name, value); })) {
    findings.Fault({value}, std::move(*tooLarge));
  }
  for (const cJSON* row : Elements(value)) {
    const cJSON* const header = cJSON_GetObjectItem(row, "name");
    if (!cJSON_IsString(header)) continue;
    if (auto refusal = AgainstHeader(header->valuestring)) findings.Fault({header}, std::move(*refusal));
  }
}

void CheckStateValue(const Members& item, Findings& findings) {
  const cJSON* const value = item.Find("value");
  if (value == nullptr || cJSON_IsString(value)) return CheckTextValue(item, findings);
  CheckTreeValue(item, findings);
}

void CheckMetricValue(const Members& item, Findings& findings) {
  const cJSON* const value = item.Find("value");
  if (value == nullptr) return;  // which is told
  const auto build = [&] {
    return CBasePluginObject::CreateBaseValueItemJson(kSomeName, value->valuedouble);
  };
  if (const auto refusal = Refusal(build)) return findings.Fault({value}, *refusal);
  const JsonPtr built(build());
  const cJSON* const sent = cJSON_GetObjectItem(built.get(), "value");
  if (sent->valuedouble == value->valuedouble) return;
  findings.Warn({value}, {"is sent with two decimals: " + std::string(JsonText(cJSON_Print(sent)).get())});
}

struct Report {
  const char* key;
  Shape shape;
  void (*checkValue)(const Members& item, Findings& findings);
  bool mayRepeat;  // two events of one name are two events
};
constexpr Report kStates = {"states", kStateFields, CheckStateValue, false};
constexpr Report kMetrics = {"metrics", kMetricFields, CheckMetricValue, false};
constexpr Report kEvents = {"events", kEventFields, CheckTextValue, true};

// Names in reports are not refused by the library, but nothing of such a name can have been declared.
void WarnOfName(const Members& members, const char* key, Findings& findings,
                std::vector<Complaint> (*against)(const char* name)) {
  const char* const name = members.Text(key);
  if (name == nullptr) return;
  for (const Complaint& complaint : against(name)) {
    findings.Warn(members.At(key), {"cannot have been declared: " + complaint.text, complaint.number});
  }
}

void CheckReport(const cJSON* params, const Report& report, Findings& findings) {
  const Field fields[] = {{"appGUID", kText, kRequired},
                          {"epoch", kText, kRequired},
                          {"moduleName", kText, kRequired},
                          {report.key, kAnything, kExpected, cJSON_Array}};
  const Members members(params, fields, findings);
  if (!members) return;
  CheckStamp(members, findings);
  WarnOfName(members, "moduleName", findings, AgainstModuleName);
  for (const cJSON* node : Elements(members.Find(report.key))) {
    const Members item(node, report.shape, findings);
    if (!item) continue;
    Judge(item, "name", findings,
          [](const char* name) { return CBasePluginObject::CreateBaseValueItemJson(name, kSomeText); });
    WarnOfName(item, "name", findings, AgainstItemName);
    report.checkValue(item, findings);
  }
  if (!report.mayRepeat) WarnOfRepeatedNames(members.Find(report.key), "name", findings);
}

void CheckStates(const cJSON* params, Findings& findings) {
  CheckReport(params, kStates, findings);
}
void CheckMetrics(const cJSON* params, Findings& findings) {
  CheckReport(params, kMetrics, findings);
}
void CheckEvents(const cJSON* params, Findings& findings) {
  CheckReport(params, kEvents, findings);
}

// ---- Alerts, acknowledgements, local commands

// Texts that a static builder of the library is given may be null, and are left out then.
constexpr Field kAlertFields[] = {{"epoch", kText, kRequired},
                                  {"appGUID", kText, kExpected},
                                  {"moduleName", kText},
                                  {"alarms", kAnything, kExpected, cJSON_Array}};
constexpr Field kAlarmFields[] = {{"name", kText, kExpected},
                                  {"action", kText, kExpected},
                                  {"time", kText, kRequired},
                                  {"message", kText, kExpected}};
constexpr Field kAckFields[] = {{"epoch", kText, kRequired},
                                {"appGUID", kText, kExpected},
                                {"commandId", kText, kExpected},
                                {"commandSource", kText, kExpected},
                                {"moduleName", kText, kExpected},
                                {"commandState", kText, kRequired},
                                {"commandAcks", cJSON_Array | cJSON_Object}};
constexpr Field kResultFields[] = {{"name", kText, kExpected}, {"result", kAnything, kExpected}};
constexpr Field kLocalCommandFields[] = {
    {"epoch", kText, kRequired},      {"clientAppGUID", kText, kExpected},
    {"serialNumber", kText},          {"appGUID", kText, kExpected},
    {"commandId", kText, kExpected},  {"commandSource", kText, kExpected},
    {"moduleName", kText, kExpected}, {"commands", cJSON_Array | cJSON_Object}};
constexpr Field kCommandFields[] = {{"name", kText}, {"params", kAnything}};
constexpr Field kCommandParamFields[] = {{"name", kText}, {"value", kText}};

// Of a collection that may also be an object, which is its one item then.
template <typename Check>
void CheckItems(const cJSON* items, const Shape& shape, Findings& findings, Check check) {
  const auto checkOne = [&](const cJSON* node) {
    const Members item(node, shape, findings);
    if (item) check(item);
  };
  if (cJSON_IsObject(items)) checkOne(items);
  for (const cJSON* node : Elements(items)) checkOne(node);
}

bool IsOneOf(const char* text, std::initializer_list<const std::string*> words) {
  for (const std::string* word : words) {
    if (text == *word) return true;
  }
  return false;
}

// The agent knows these words only, though the library sends any.
void WarnUnlessOneOf(const Members& members, const char* key, std::initializer_list<const std::string*> words,
                     Findings& findings) {
  const char* const text = members.Text(key);
  if (text == nullptr || IsOneOf(text, words)) return;
  std::string known;
  for (const std::string* word : words) known += (known.empty() ? "\"" : " or \"") + *word + "\"";
  findings.Warn(members.At(key), {"is not " + known});
}

std::optional<Complaint> AgainstModuleOfAlert(const char* name) {
  return Refusal([&] {
    CAlertsPluginJson builder;
    builder.m_moduleName = name == nullptr ? "" : name;
    return builder.CreateAlarmsParamsObj(nullptr);
  });
}

void CheckAlert(const cJSON* params, Findings& findings) {
  const Members members(params, kAlertFields, findings);
  if (!members) return;
  CheckStamp(members, findings);
  // The builder that is given everything takes any module name, the one that knows its own refuses none.
  if (const auto refusal = AgainstModuleOfAlert(members.Text("moduleName"))) {
    if (members.CanJudge("moduleName")) findings.Warn(members.At("moduleName"), *refusal);
  }
  for (const cJSON* node : Elements(members.Find("alarms"))) {
    const Members alarm(node, kAlarmFields, findings);
    if (!alarm) continue;
    CheckSeconds(alarm, "time", findings);
    WarnUnlessOneOf(alarm, "action", {&Action::trigger, &Action::resolve}, findings);
  }
}

void CheckAck(const cJSON* params, Findings& findings) {
  const Members members(params, kAckFields, findings);
  if (!members) return;
  CheckStamp(members, findings);
  WarnUnlessOneOf(members, "commandSource", {&CommandSource::local, &CommandSource::remote}, findings);
  WarnUnlessOneOf(members, "commandState",
                  {&AckState::ACCEPTED, &AckState::ACKED, &AckState::REJECTED, &AckState::ERRORED}, findings);
  CheckItems(members.Find("commandAcks"), kResultFields, findings, [](const Members&) {});
}

cJSON* BuildCommand(const char* name, const cJSON* params) {
  // What the params hold is not looked at, only what they are.
  JsonPtr standIn(params == nullptr       ? nullptr
                  : cJSON_IsArray(params) ? cJSON_CreateArray()
                                          : cJSON_CreateNull());
  cJSON* const built = CLocalCommandPluginJson::CreateCommandsItemJson(name, standIn.get());
  standIn.release();
  return built;
}

void CheckCommand(const Members& command, Findings& findings) {
  const JsonPtr someParams(cJSON_CreateArray());
  Judge(command, "name", findings, [&](const char* name) { return BuildCommand(name, someParams.get()); });
  const cJSON* const params = command.Find("params");
  Judge(command, "params", findings, [&](const char*) { return BuildCommand(kSomeName, params); });
  if (!cJSON_IsArray(params)) return;  // which is told
  CheckItems(params, kCommandParamFields, findings, [&](const Members& param) {
    Judge(param, "name", findings, [](const char* name) {
      return CLocalCommandPluginJson::CreateCommandParamsItemJson(name, kSomeText);
    });
    CheckTextValue(param, findings);
  });
}

void CheckLocalCommand(const cJSON* params, Findings& findings) {
  const Members members(params, kLocalCommandFields, findings);
  if (!members) return;
  CheckStamp(members, findings);
  WarnUnlessOneOf(members, "commandSource", {&CommandSource::local, &CommandSource::remote}, findings);
  CheckItems(members.Find("commands"), kCommandFields, findings,
             [&](const Members& command) { CheckCommand(command, findings); });
}

// ---- Kinds of requests

struct Check {
  const std::string& method;
  void (*check)(const cJSON* params, Findings& findings);
};
const Check kChecks[] = {
    {AgentPluginApi::notifyPluginUpdate, CheckRegistration},
    {AgentPluginApi::notifyPluginState, CheckStates},
    {AgentPluginApi::notifyPluginMetric, CheckMetrics},
    {AgentPluginApi::notifyPluginEvent, CheckEvents},
    {AgentPluginApi::notifyPluginAlert, CheckAlert},
    {AgentPluginApi::notifyPluginCommandAck, CheckAck},
    {AgentPluginApi::notifyPluginLocalCommand, CheckLocalCommand},
};

void CheckParams(const cJSON* params, const RequestKind& kind, Findings& findings) {
  if (params == nullptr) return;
  for (const Check& check : kChecks) {
    if (check.method == kind.method) check.check(params, findings);
  }
}

// ---- Envelope

constexpr Field kEnvelopeFields[] = {{"jsonrpc", kText, kRequired},
                                     {"params", cJSON_Object, kRequired},
                                     {"method", kText, kRequired},
                                     {"id", kAnything}};
constexpr std::size_t kOrderedFields = 3;  // the first ones, as every request is printed

// What signing adds to a method, tried out with a key that nobody uses.
const std::string& SampleSignature() {
  static const std::string kSample = [] {
    std::string signature;
    CPluginUtil::GetSignature("digest", "key", &signature);
    return CBasePluginObject::GetSignedMethod("", signature);
  }();
  return kSample;
}

// Like the sample up to its salt; salt and hash as long, and in the same characters.
bool IsSignature(std::string_view text) {
  constexpr const char* kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string_view sample = SampleSignature();
  const std::size_t hash = sample.rfind('$');
  const std::size_t salt = sample.rfind('$', hash - 1) + 1;
  return text.size() == sample.size() && text.substr(0, salt) == sample.substr(0, salt) &&
         text[hash] == '$' && text.find_first_not_of(kBase64, salt) == hash &&
         text.find_first_not_of(kBase64, hash + 1) == std::string_view::npos;
}

const char* FaultOfSuffix(const MethodParts& method) {
  if (method.version != ApiVersion::v2) {
    return method.suffix.empty() ? nullptr : R"(only "v2" requests carry a signature)";
  }
  if (method.suffix.empty())
    return R"("v2" requests are signed: "?authorization=" and a signature must follow)";
  return IsSignature(method.suffix) ? nullptr : "what follows the method is no signature of this system";
}

void CheckMethod(const Members& envelope, RequestVerdict& verdict, Findings& findings) {
  const char* const text = envelope.Text("method");
  if (text == nullptr) return;
  const MethodParts parts = PartsOf(text);
  verdict.isSigned = !parts.suffix.empty();
  verdict.version = parts.version;
  verdict.method = parts.name;
  const Place place = envelope.At("method");
  if (!parts.hasVersion) {
    findings.Fault(place, {"must be a version, \"/\" and the name of a method"});
  } else if (const char* const fault = FaultOfSuffix(parts)) {
    findings.Fault(place, {fault});
  } else if (parts.version != ApiVersion::v1 && parts.version != ApiVersion::v2) {
    findings.Warn(place, {"unknown version \"" + verdict.version + "\""});
  }
  const RequestKind* const kind = KindOfMethod(parts.name);
  if (kind == nullptr) {
    findings.Fault(place, {"unknown method"});
  } else if (kind->isOfAgent) {
    findings.Fault(place, {"the agent sends this, a plugin never does"});
  }
}

void CheckEnvelope(const cJSON* document, const Members& envelope, RequestVerdict& verdict,
                   Findings& findings) {
  const char* const jsonrpc = envelope.Text("jsonrpc");
  if (jsonrpc != nullptr && std::strcmp(jsonrpc, "2.0") != 0) {
    findings.Fault(envelope.At("jsonrpc"), {"must be \"2.0\""});
  }
  if (envelope.Find("id") != nullptr) {
    findings.Fault(envelope.At("id"),
                   {"makes it a request that waits for an answer; messages are notifications"});
  }
  CheckMethod(envelope, verdict, findings);
  std::size_t last = 0;
  for (const cJSON* member : Children(document)) {
    std::size_t place = last;
    for (std::size_t i = 0; i < kOrderedFields; ++i) {
      if (std::strcmp(member->string, kEnvelopeFields[i].key) == 0) place = i;
    }
    if (place < last) return findings.Warn({member}, {R"(the order is "jsonrpc", "params", "method")"});
    last = place;
  }
}

// ---- Size

std::size_t PrintedSize(const cJSON* tree) {
  const JsonText text(cJSON_Print(tree));
  return text == nullptr ? 0 : std::strlen(text.get());
}

// As a "v1" request around params.
std::size_t SizeAround(const cJSON* params, const std::string& method) {
  CBasePluginObject base;
  const JsonPtr request(base.GetJsonrpcRequest(cJSON_CreateObjectReference(params->child)));
  const std::string versioned = CBasePluginObject::GetAgentPluginApi(base.m_version, method);
  cJSON_AddStringToObject(request.get(), "method", versioned.c_str());
  return PrintedSize(request.get());
}

// The library's words about a report that no limit admits; they tell the limit too.
const Complaint& TooLarge() {
  static const Complaint kComplaint = [] {
    const std::string endless(100000, 'x');
    const auto refusal = Refusal([&] {
      CStatesPluginJson builder;
      return builder.GetJsonrpcRequest(builder.CreateStatesParamsObj(cJSON_CreateString(endless.c_str())));
    });
    return refusal.value_or(Complaint());
  }();
  return kComplaint;
}

void CheckSize(const cJSON* document, const RequestKind& kind, RequestVerdict& verdict, Findings& findings) {
  verdict.size = verdict.isWhole ? PrintedSize(document) : SizeAround(document, kind.method);
  if (!verdict.isSigned) verdict.signedSize = verdict.size + SampleSignature().size();
  if (!kind.isLimited) return;
  const std::string& words = TooLarge().text;
  verdict.limit = std::stoul(words.substr(words.find_first_of("0123456789")));
  if (verdict.size > *verdict.limit) {
    findings.Fault({document}, TooLarge());
  } else if (verdict.signedSize.value_or(0) > *verdict.limit) {
    findings.Warn({document}, {"is too large once it is signed: " + TooLarge().text, TooLarge().number});
  }
}

}  // namespace

RequestVerdict CheckRequest(const cJSON* document, const std::string& text) {
  RequestVerdict verdict;
  Findings findings;
  verdict.isWhole = IsWholeRequest(document);
  const cJSON* params = document;
  if (verdict.isWhole) {
    const Members envelope(document, kEnvelopeFields, findings);
    CheckEnvelope(document, envelope, verdict, findings);
    params = envelope.Find("params");
  }
  const RequestKind* kind = KindOfMethod(verdict.method);
  // A request without a usable method still has params that tell what is meant.
  if (kind == nullptr) kind = KindOfParams(params);
  if (kind == nullptr && !verdict.isWhole) {
    findings.Fault({document}, {"is neither a request nor the params of one that a plugin sends"});
  }
  if (kind != nullptr && !kind->isOfAgent) {
    if (verdict.method.empty()) verdict.method = kind->method;
    CheckParams(params, *kind, findings);
    CheckSize(document, *kind, verdict, findings);
  }
  verdict.findings = std::move(findings).InOrder(document, text);
  return verdict;
}

}  // namespace tool
