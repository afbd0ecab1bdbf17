#include "SignCommand.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BasePluginObject.h"
#include "Input.h"
#include "JsonBuild_internal.h"
#include "KeyFile.h"
#include "Numbers.h"
#include "RequestBuild_internal.h"
#include "Subcommand.h"

namespace {

using namespace pluginsdk::internal;

struct Options : tool::CommonOptions {
  std::string keyFile;
  std::string version = ApiVersion::v2;
  std::string method;
  bool indented = false;
};

constexpr tool::Words kWords = {
    "sign", "Print the request to send for a params document, signed",
    R"(FILE holds a params document, or a whole request, whose method is made anew. What is printed are the
bytes to send: to a file or a pipe no newline follows them. Params stay as they are, "epoch" included.

Exit status: 0 printed, 1 refused because its indented printing exceeds 2048 bytes (state, metric and
event requests), 2 wrong arguments, no JSON, or no method given or found by the members.

Example:
  echo '{"states":[{"name":"power","value":"on"}]}' | pluginsdk sign --key-file key)"};

struct Kind {
  const std::string& api;
  const char* member = nullptr;  // of the params, which no other kind has; null when there is none
  bool limited = false;          // to 2048 bytes
};
constexpr bool kLimited = true;

// What a plugin sends, and what the agent sends to it, for trying out a plugin.
const std::array<Kind, 10> kKinds = {{
    {AgentPluginApi::notifyPluginState, "states", kLimited},
    {AgentPluginApi::notifyPluginMetric, "metrics", kLimited},
    {AgentPluginApi::notifyPluginEvent, "events", kLimited},
    {AgentPluginApi::notifyPluginAlert, "alarms"},
    {AgentPluginApi::notifyPluginCommandAck, "commandState"},
    {AgentPluginApi::notifyPluginLocalCommand, "clientAppGUID"},
    {AgentPluginApi::notifyPluginUpdate, "appName"},
    {AgentPluginApi::notifyPluginCommand},
    {AgentPluginApi::notifyPluginAlarmUpdate},
    {AgentPluginApi::notifyAgentEvent},
}};

// Without the version in front and the signature behind.
std::string_view BareName(std::string_view method) {
  method = method.substr(0, method.find('?'));
  const std::size_t slash = method.rfind('/');
  return slash == std::string_view::npos ? method : method.substr(slash + 1);
}

const Kind& KindNamed(std::string_view method) {
  const std::string_view name = BareName(method);
  std::string known;
  for (const Kind& kind : kKinds) {
    if (kind.api == name) return kind;
    known += "\n  " + kind.api;
  }
  throw tool::Unusable("unknown method \"" + std::string(name) + "\"; the known ones are" + known);
}

const Kind& KindOfParams(const cJSON* params, const std::string& name) {
  for (const Kind& kind : kKinds) {
    if (kind.member != nullptr && cJSON_HasObjectItem(params, kind.member) != 0) return kind;
  }
  throw tool::Unusable(name + ": no member tells the method of these params: give it with --method");
}

struct Request {
  JsonPtr params;
  const Kind& kind;
};

// Takes the params out of the document, and tells of what else stands there.
Request Dissect(const tool::Input& input, JsonPtr document, const std::string& given) {
  if (cJSON_IsObject(document.get()) == 0) throw tool::Unusable(input.name + ": not a JSON object");
  const std::string_view method = StringMember(document.get(), "method");
  const bool whole = cJSON_HasObjectItem(document.get(), "method") != 0 ||
                     cJSON_HasObjectItem(document.get(), "jsonrpc") != 0;
  if (!whole) {
    const Kind& kind = given.empty() ? KindOfParams(document.get(), input.name) : KindNamed(given);
    return {std::move(document), kind};
  }
  JsonPtr params(cJSON_DetachItemFromObject(document.get(), "params"));
  if (params == nullptr) throw tool::Unusable(input.name + ": a request without \"params\"");
  const std::string_view named = given.empty() ? method : given;
  const Kind& kind = named.empty() ? KindOfParams(params.get(), input.name) : KindNamed(named);
  for (const cJSON* member : Children(document.get())) {
    const std::string_view key = member->string;
    if (key == "jsonrpc" || key == "method") continue;
    std::cerr << "note: \"" << key << "\" is left out: a request is \"jsonrpc\", \"params\" and \"method\"\n";
  }
  return {std::move(params), kind};
}

// The library draws the salt of a signature from rand.
void SeedSalts() {
  unsigned seed = 0;
  if (::getrandom(&seed, sizeof seed, 0) != sizeof seed) throw tool::Unusable("no random bytes for a salt");
  std::srand(seed);
}

class Builder : public CBasePluginObject {
 public:
  explicit Builder(const Options& options) {
    m_version = options.version;
    if (m_version != ApiVersion::v2) return;
    if (options.keyFile.empty()) throw tool::Unusable("--key-file is needed to sign");
    m_accessKey = tool::ReadKeyFile(options.keyFile).Bytes();
    SeedSalts();
  }
  ~Builder() { ::explicit_bzero(m_accessKey.data(), m_accessKey.size()); }
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;
};

JsonText Build(const Options& options, Request request) {
  Builder builder(options);
  const RequestRules rules = {request.kind.api, request.kind.limited};
  JsonPtr built;
  try {
    built.reset(BuildRequest(builder, rules, request.params.get(), !options.indented));
  } catch (const CPluginException&) {
    request.params.release();  // a request above the limit is deleted with them; there is an access key
    throw;
  }
  request.params.release();
  JsonText text = Print(built.get(), options.indented);
  if (text == nullptr) throw std::bad_alloc();
  return text;
}

void PrintRequest(const Options& options, const Kind& kind, const char* text) {
  if (options.json) {
    const JsonPtr answer = NewObject();
    AddString(answer.get(), "request", text);
    AddString(answer.get(), "method", kind.api);
    AddString(answer.get(), "apiVersion", options.version);
    AddBool(answer.get(), "signed", options.version == ApiVersion::v2);
    return tool::PrintAnswer(answer.get());
  }
  std::cout << text;
  if (::isatty(STDOUT_FILENO) == 1) std::cout << "\n";
}

void TellChangedNumbers(const tool::Input& input) {
  constexpr std::size_t kTold = 10;  // more of them say nothing new
  std::vector<tool::ChangedNumber> changed = tool::ChangedNumbers(input.text);
  changed.resize(std::min(changed.size(), kTold));
  for (const tool::ChangedNumber& number : changed) {
    const tool::Position at = tool::PositionAt(input.text, number.offset);
    std::cerr << "note: " << input.name << ":" << at.line << ":" << at.column << ": " << number.literal
              << " becomes " << number.printed << ": numbers are doubles\n";
  }
}

ExitCode Run(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  Request request = Dissect(input, tool::ParseInput(input), options.method);
  const Kind& kind = request.kind;
  TellChangedNumbers(input);
  try {
    PrintRequest(options, kind, Build(options, std::move(request)).get());
  } catch (const CPluginException& refused) {
    std::cerr << "pluginsdk sign: " << refused.what() << "\n";
    return kVerdictNo;
  }
  return kDone;
}

}  // namespace

void AddSignCommand(CLI::App& app, ExitCode& exitCode) {
  const auto options = std::make_shared<Options>();
  CLI::App* sign = tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
  sign->add_option("--key-file", options->keyFile, tool::kKeyFileHelp)->type_name("KEYFILE");
  sign->add_option("--version", options->version, "v2: signed, v1: unsigned, needs no key")
      ->check(CLI::IsMember({ApiVersion::v1, ApiVersion::v2}))
      ->capture_default_str();
  sign->add_option("--method", options->method, "method of the request; found by the members when left out")
      ->type_name("NAME");
  sign->add_flag("--indented", options->indented, "sign and print the indented form, not the compact one");
}
