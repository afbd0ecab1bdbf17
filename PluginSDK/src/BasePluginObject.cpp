#include "BasePluginObject.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "JsonBuild_internal.h"

namespace ApiVersion {
const std::string v1 = "v1";
const std::string v2 = "v2";
}  // namespace ApiVersion

namespace AgentPluginApi {
const std::string notifyPluginUpdate = "notifyPluginUpdate";
const std::string notifyPluginCommand = "notifyPluginCommand";
const std::string notifyPluginCommandAck = "notifyPluginCommandAck";
const std::string notifyPluginLocalCommand = "notifyPluginLocalCommand";
const std::string notifyPluginState = "notifyPluginState";
const std::string notifyPluginEvent = "notifyPluginEvent";
const std::string notifyPluginMetric = "notifyPluginMetric";
const std::string notifyPluginAlarmUpdate = "notifyPluginAlarmUpdate";
const std::string notifyPluginAlert = "notifyPluginAlert";
const std::string notifyAgentEvent = "notifyAgentEvent";
}  // namespace AgentPluginApi

// Copies of the method names above: same source file, later in it, so the originals are built first.
namespace MessageType {
const std::string api_notifyPluginCommand = AgentPluginApi::notifyPluginCommand;
const std::string api_notifyPluginAlarmUpdate = AgentPluginApi::notifyPluginAlarmUpdate;
const std::string api_notifyAgentEvent = AgentPluginApi::notifyAgentEvent;
const std::string error = "error";
const std::string others = "others";
const std::string agentEventServerConnectivity = "serverConnectivity";
const std::string online = "online";
const std::string offline = "offline";
}  // namespace MessageType

namespace StringFormatter {
const std::string nameFormat = "^[a-zA-Z][a-zA-Z0-9_-]*$";
const std::string versionFormat = "^[0-9]+[.][0-9]+[.][0-9]+$";
const std::string otaCommand = "^OTAv[0-9]+_";
}  // namespace StringFormatter

using namespace pluginsdk::internal;

namespace {

// Bytes, not characters: the agent stores texts in fields of these sizes.
constexpr std::size_t kMaxNameLength = 32;
constexpr std::size_t kMaxStringLength = 512;
constexpr std::size_t kMaxTableLength = 1024;
constexpr std::size_t kMaxHeaderLength = 128;
constexpr int kMaxDigits = 15;

// Error numbers of the rules that this file enforces; the classes stand with CPluginException.
constexpr int kFormatError = 1;
constexpr int kSizeError = 2;
constexpr int kArgumentError = 3;

[[noreturn]] void ThrowTooLong(std::string_view what, const char* limit) {
  std::string message = "The length of \"";
  message.append(what).append("\" exceeds the maximum ").append(limit).append(" Bytes.");
  throw CPluginException(message, kSizeError);
}

void RequireArgument(const void* argument, const char* message) {
  if (argument == nullptr) throw CPluginException(message, kArgumentError);
}

void RequireFormat(const char* text, const char* field) {
  if (CPluginUtil::RegExMatch(text, StringFormatter::nameFormat, true)) return;
  throw CPluginException(std::string("Invalid ") + field + " format: \"" + text + "\"", kFormatError);
}

void CheckHeaders(const cJSON* table) {
  for (const cJSON* column : Children(table)) {
    const std::string_view header = StringMember(column, "name");
    if (header.size() > kMaxHeaderLength) ThrowTooLong(header, "header length, i.e. 128");
  }
}

// Below this no rounding of the repeated division can make a sixteenth digit, so counting is skipped.
constexpr double kSurelyFewDigits = 9e14;

void CheckDigits(double value) {
  if (std::fabs(value) < kSurelyFewDigits || CPluginUtil::GetNumberDigitsCount(value) <= kMaxDigits) return;
  // Six significant digits in general notation, as a stream writes it, but in every locale alike.
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr;
  throw CPluginException(
      "The number " + std::string(text, end) + " exceeds at most fifteen digits limitation.", kArgumentError);
}

// Rounds through the decimal text, so that 1.005 becomes what fixed notation makes of its nearest double.
double RoundToTwoDecimals(double value) {
  // A number that cannot be written as digits reads back as zero.
  if (std::isnan(value)) return 0.0;
  if (value == std::trunc(value)) return value;
  char text[32];  // sign, at most 16 digits, point, two decimals
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 2).ptr;
  double rounded = 0.0;
  std::from_chars(text, end, rounded);
  return rounded;
}

JsonPtr NewNamedItem(const char* name) {
  JsonPtr item = NewObject();
  AddString(item.get(), "name", name);
  return item;
}

}  // namespace

CPluginException::CPluginException(const std::string& message, int errorNumber)
    : m_errorNumber(errorNumber), m_message(message) {}

CPluginException::~CPluginException() = default;

const char* CPluginException::what() const noexcept {
  return m_message.c_str();
}

int CPluginException::getErrorNumber() const {
  return m_errorNumber;
}

// Literals, not the vocabulary constants: a builder may be a static object of a library loaded before ours.
CBasePluginObject::CBasePluginObject() : m_version("v1") {}

cJSON* CBasePluginObject::GetJsonrpcRequest(cJSON* params) {
  JsonPtr request(cJSON_CreateObject());
  if (!request) return nullptr;
  AddString(request.get(), "jsonrpc", "2.0");
  Attach(request.get(), "params", params);
  return request.release();
}

std::string CBasePluginObject::GetAgentPluginApi(std::string version, std::string api) {
  return std::move(version.append("/").append(api));
}

cJSON* CBasePluginObject::CreateBaseDataItemJson(const char* name, const char* displayName,
                                                 const char* description, const char* displayCategory) {
  RequireArgument(name, "name is required parameter.");
  if (std::strlen(name) > kMaxNameLength) ThrowTooLong(name, "name length, i.e. 32");
  RequireFormat(name, "name");
  if (displayCategory != nullptr) RequireFormat(displayCategory, "displayCategory");

  JsonPtr item = NewNamedItem(name);
  AddString(item.get(), "displayName", displayName);
  AddString(item.get(), "description", description);
  AddString(item.get(), "displayCategory", displayCategory);
  return item.release();
}

cJSON* CBasePluginObject::CreateBaseValueItemJson(const char* name, const char* value) {
  RequireArgument(name, "name is NULL");
  RequireArgument(value, "value is NULL");
  if (std::strlen(value) > kMaxStringLength) ThrowTooLong(value, "string length, i.e. 512");

  JsonPtr item = NewNamedItem(name);
  AddString(item.get(), "value", value);
  return item.release();
}

cJSON* CBasePluginObject::CreateBaseValueItemJson(const char* name, cJSON* value) {
  RequireArgument(name, "name is NULL");
  RequireArgument(value, "value is NULL");
  if (PrintsLongerThan(value, kMaxTableLength)) ThrowTooLong(name, "table length, i.e. 1024");
  // Exactly an array: one that carries further flags, such as a reference, is taken as it is.
  if (value->type == cJSON_Array) CheckHeaders(value);

  JsonPtr item = NewNamedItem(name);
  Attach(item.get(), "value", value);
  return item.release();
}

cJSON* CBasePluginObject::CreateBaseValueItemJson(const char* name, double value) {
  RequireArgument(name, "name is NULL");
  CheckDigits(value);

  JsonPtr item = NewNamedItem(name);
  AddNumber(item.get(), "value", RoundToTwoDecimals(value));
  return item.release();
}
