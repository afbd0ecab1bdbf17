#include "CommandAcksPluginJson.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <new>
#include <utility>

#include "IncomingRequest_internal.h"
#include "JsonBuild_internal.h"
#include "RequestBuild_internal.h"
#include "Utl_Log.h"

namespace AckState {
const std::string ACCEPTED = "ACCEPTED";
const std::string ACKED = "ACKED";
const std::string REJECTED = "REJECTED";
const std::string ERRORED = "ERRORED";
}  // namespace AckState

using namespace pluginsdk::internal;

namespace {

constexpr const char* kSource = "PluginSDK/src/CommandAcksPluginJson";

// ---- The received request

template <typename Value>
void Log(int line, const char* format, Value value) {
  UTL_LOGPrint(UTL_LOG_INFO, kSource, line, "ValidateCommands", format, value);
}

// cJSON writes fifteen significant digits when they are precise enough, else seventeen. So a number that has
// no more than fifteen prints and reads back as it is. Not so a negative zero, whose sign some versions drop.
bool PrintsAsItIs(double value) {
  if (value == 0.0) return !std::signbit(value);
  if (!std::isfinite(value)) return false;
  constexpr std::ptrdiff_t kLongestMantissa = 1 + 15;  // the point and the digits
  char shortest[32];
  const auto end =
      std::to_chars(std::begin(shortest), std::end(shortest), std::fabs(value), std::chars_format::scientific)
          .ptr;
  return std::find(shortest, end, 'e') - shortest <= kLongestMantissa;
}

// A command is handed out as its printed text would read: numbers have the precision of cJSON's printing,
// and one that is too large for a double has become null. Nothing but numbers changes on that way, so only
// they take it.
void ReadBackNumbers(cJSON* item) {
  for (cJSON* child : Children(item)) ReadBackNumbers(child);
  if (!cJSON_IsNumber(item) || PrintsAsItIs(item->valuedouble)) return;
  char text[32] = "";  // cJSON writes a number with at most 25 characters
  cJSON_PrintPreallocated(item, text, sizeof text, 0);
  const JsonPtr readBack = Parse(text);
  if (!readBack) throw std::bad_alloc();
  item->type = readBack->type;
  item->valueint = readBack->valueint;
  item->valuedouble = readBack->valuedouble;
}

void Validate(CCommandPluginJson& command, const char* text, const VerificationLimits* limits) {
  const JsonPtr request = Parse(text);
  const cJSON* params = cJSON_GetObjectItem(request.get(), "params");
  if (params == nullptr) return;

  const std::string method(StringMember(request.get(), "method"));
  command.m_validSignature = IsAuthentic(text, method, command.m_accessKey, limits);
  Log(__LINE__, "is valid signature? %d", static_cast<int>(command.m_validSignature));
  if (!command.m_validSignature) return;

  command.m_commandId = StringMember(params, "commandId");
  command.m_commandSource = StringMember(params, "commandSource");
  command.m_moduleName = StringMember(params, "moduleName");
  if (cJSON* commands = cJSON_GetObjectItem(params, "commands"); cJSON_IsArray(commands)) {
    ReadBackNumbers(commands);
    // Last of what may throw: an exception in the constructor would leave the trees without an owner.
    TakeChildren(commands, command.m_commands);
  }
  Log(__LINE__, "m_commandId: %s", command.m_commandId.c_str());
  Log(__LINE__, "m_commandSource: %s", command.m_commandSource.c_str());
  Log(__LINE__, "m_moduleName: %s", command.m_moduleName.c_str());
}

// ---- Acknowledgements

cJSON* BuildParams(const std::string& state, const char* appGUID, const char* commandId,
                   const char* commandSource, const char* moduleName, cJSON* commandAcks) {
  JsonPtr params = NewObject();
  AddEpoch(params.get());
  AddString(params.get(), "appGUID", appGUID);
  AddString(params.get(), "commandId", commandId);
  AddString(params.get(), "commandSource", commandSource);
  AddString(params.get(), "moduleName", moduleName);
  AddString(params.get(), "commandState", state);
  AttachIfUsable(params.get(), "commandAcks", commandAcks);
  return params.release();
}

cJSON* EchoRequest(const std::string& state, const CCommandAcksPluginJson& builder, cJSON* commandAcks) {
  const CCommandPluginJson* request = builder.m_commandPluginJson;
  if (request == nullptr) return nullptr;
  return BuildParams(state, builder.m_appGUID.c_str(), request->m_commandId.c_str(),
                     request->m_commandSource.c_str(), request->m_moduleName.c_str(), commandAcks);
}

}  // namespace

CCommandPluginJson::CCommandPluginJson(char const* jsonText, std::string accessKey)
    : m_accessKey(std::move(accessKey)) {
  ValidateCommands(jsonText);
}

CCommandPluginJson::CCommandPluginJson(char const* jsonText, std::string accessKey,
                                       const VerificationLimits& limits)
    : m_accessKey(std::move(accessKey)) {
  Validate(*this, jsonText, &limits);
}

CCommandPluginJson::~CCommandPluginJson() {
  for (cJSON* command : m_commands) cJSON_Delete(command);
}

void CCommandPluginJson::ValidateCommands(char const* jsonText) {
  Validate(*this, jsonText, nullptr);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksAcceptedParamsObj(char const* appGUID, char const* commandId,
                                                                  char const* commandSource,
                                                                  char const* moduleName,
                                                                  cJSON* commandAcks) {
  return BuildParams(AckState::ACCEPTED, appGUID, commandId, commandSource, moduleName, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksAckedParamsObj(char const* appGUID, char const* commandId,
                                                               char const* commandSource,
                                                               char const* moduleName, cJSON* commandAcks) {
  return BuildParams(AckState::ACKED, appGUID, commandId, commandSource, moduleName, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksRejectedParamsObj(char const* appGUID, char const* commandId,
                                                                  char const* commandSource,
                                                                  char const* moduleName,
                                                                  cJSON* commandAcks) {
  return BuildParams(AckState::REJECTED, appGUID, commandId, commandSource, moduleName, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksErroredParamsObj(char const* appGUID, char const* commandId,
                                                                 char const* commandSource,
                                                                 char const* moduleName, cJSON* commandAcks) {
  return BuildParams(AckState::ERRORED, appGUID, commandId, commandSource, moduleName, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksAcceptedParamsObj(cJSON* commandAcks) {
  return EchoRequest(AckState::ACCEPTED, *this, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksAckedParamsObj(cJSON* commandAcks) {
  return EchoRequest(AckState::ACKED, *this, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksRejectedParamsObj(cJSON* commandAcks) {
  return EchoRequest(AckState::REJECTED, *this, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksErroredParamsObj(cJSON* commandAcks) {
  return EchoRequest(AckState::ERRORED, *this, commandAcks);
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksItemJson(char const* name, char const* result) {
  JsonPtr item = NewObject();
  AddString(item.get(), "name", name);
  AddString(item.get(), "result", result);
  return item.release();
}

cJSON* CCommandAcksPluginJson::CreateCommandAcksItemJson(char const* name, cJSON* result) {
  JsonPtr item = NewObject();
  AddString(item.get(), "name", name);
  Attach(item.get(), "result", result);
  return item.release();
}

cJSON* CCommandAcksPluginJson::GetJsonrpcRequest(cJSON* params, bool unformatted) {
  constexpr bool kLimited = false;
  return BuildRequest(*this, {AgentPluginApi::notifyPluginCommandAck, kLimited, kSource, __LINE__}, params,
                      unformatted);
}

cJSON* CCommandAcksPluginJson::GetJsonrpcRequest(cJSON* params) {
  return GetJsonrpcRequest(params, true);
}
