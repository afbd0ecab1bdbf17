#include "SignCommand.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
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
#include "RequestKind.h"
#include "Subcommand.h"
#include "Utf8.h"

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
With --json a refusal, too, is a document; bytes that are not UTF-8 are refused then.

Exit status: 0 printed, 1 refused because its indented printing exceeds 2048 bytes (state, metric and
event requests), 2 wrong arguments, no JSON, or no method given or found by the members.

Example:
  echo '{"states":[{"name":"power","value":"on"}]}' | pluginsdk sign --key-file key)"};

// Of a whole method, or of a bare name.
const tool::RequestKind& KindNamed(std::string_view method) {
  const std::string_view name = tool::PartsOf(method).name;
  const tool::RequestKind* const kind = tool::KindOfMethod(name);
  if (kind != nullptr) return *kind;
  throw tool::Unusable("unknown method \"" + std::string(name) + "\"; the known ones are" +
                       tool::KnownMethods(" "));
}

const tool::RequestKind& KindOf(std::string_view method, const cJSON* params, const std::string& name) {
  if (!method.empty()) return KindNamed(method);
  const tool::RequestKind* const kind = tool::KindOfParams(params);
  if (kind != nullptr) return *kind;
  throw tool::Unusable(name + ": no member tells the method of these params: give it with --method");
}

struct Request {
  JsonPtr params;
  const tool::RequestKind& kind;
};

// Takes the params out of the document, and tells of what is left out.
Request Dissect(const tool::Input& input, JsonPtr document, const std::string& given) {
  if (cJSON_IsObject(document.get()) == 0) throw tool::Unusable(input.name + ": not a JSON object");
  if (!tool::IsWholeRequest(document.get())) {
    const tool::RequestKind& kind = KindOf(given, document.get(), input.name);
    return {std::move(document), kind};
  }
  JsonPtr params(cJSON_DetachItemFromObject(document.get(), "params"));
  if (params == nullptr) throw tool::Unusable(input.name + ": a request without \"params\"");
  if (cJSON_IsObject(params.get()) == 0) throw tool::Unusable(input.name + R"(: "params" is not an object)");
  const std::string_view method = StringMember(document.get(), "method");
  const tool::RequestKind& kind =
      KindOf(given.empty() ? method : std::string_view(given), params.get(), input.name);
  for (const cJSON* member : Children(document.get())) {
    const bool isUsed = member == cJSON_GetObjectItem(document.get(), "jsonrpc") ||
                        member == cJSON_GetObjectItem(document.get(), "method");
    if (isUsed) continue;
    tool::Note('"' + std::string(member->string) +
               R"(" is left out: a request is "jsonrpc", "params" and "method")");
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

JsonPtr BuildOnce(Builder& builder, const Options& options, Request& request) {
  const RequestRules rules = {request.kind.method, request.kind.isLimited};
  JsonPtr built;
  try {
    built.reset(BuildRequest(builder, rules, request.params.get(), !options.indented));
  } catch (const CPluginException&) {
    request.params.release();  // a request above the limit is deleted with them; there is an access key
    throw;
  }
  request.params.release();
  return built;
}

// Receivers accept a request whose signature holds the letters "v1" without a look at it. One in a hundred
// does; that many in a row never come.
constexpr int kMostDraws = 100;

JsonText Build(const Options& options, Request request) {
  Builder builder(options);
  JsonPtr built = BuildOnce(builder, options, request);
  for (int draws = 1; options.version == ApiVersion::v2 && draws < kMostDraws; ++draws) {
    if (StringMember(built.get(), "method").find(ApiVersion::v1) == std::string_view::npos) break;
    request.params.reset(cJSON_DetachItemFromObject(built.get(), "params"));
    built = BuildOnce(builder, options, request);
  }
  JsonText text = Print(built.get(), options.indented);
  if (text == nullptr) throw std::bad_alloc();
  return text;
}

// An answer in JSON cannot hold a request that is not UTF-8, whose every byte counts.
void RefuseInvalidUtf8(const tool::Input& input) {
  std::string_view rest = input.text;
  while (!rest.empty()) {
    const std::size_t size = tool::Decode(rest).size;
    if (size == 0) {
      const tool::Position at = tool::PositionAt(input.text, input.text.size() - rest.size());
      throw tool::Unusable(input.name + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) +
                           ": not UTF-8, which --json cannot answer: sign it without");
    }
    rest.remove_prefix(size);
  }
}

ExitCode TellRefusal(const Options& options, const CPluginException& refused) {
  if (!options.json) {
    std::cerr << "pluginsdk sign: " << refused.what() << "\n";
    return kVerdictNo;
  }
  const JsonPtr answer = NewObject();
  Attach(answer.get(), "request", JsonPtr(cJSON_CreateNull()));
  JsonPtr refusal = NewObject();
  AddString(refusal.get(), "text", refused.what());
  AddNumber(refusal.get(), "number", refused.getErrorNumber());
  Attach(answer.get(), "refusal", std::move(refusal));
  tool::PrintAnswer(answer.get());
  return kVerdictNo;
}

void PrintRequest(const Options& options, const tool::RequestKind& kind, const char* text) {
  if (options.json) {
    const JsonPtr answer = NewObject();
    AddString(answer.get(), "request", text);
    AddString(answer.get(), "method", kind.method);
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
    tool::Note(input.name + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": " +
               number.literal + " becomes " + number.printed + " when it is printed");
  }
}

ExitCode Run(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  Request request = Dissect(input, tool::ParseInput(input), options.method);
  const tool::RequestKind& kind = request.kind;
  if (options.json) RefuseInvalidUtf8(input);
  TellChangedNumbers(input);
  try {
    PrintRequest(options, kind, Build(options, std::move(request)).get());
  } catch (const CPluginException& refused) {
    return TellRefusal(options, refused);
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
