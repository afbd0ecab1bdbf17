#include "VerifyCommand.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BasePluginObject.h"
#include "Input.h"
#include "JsonBuild_internal.h"
#include "JsonTokens.h"
#include "KeyFile.h"
#include "Subcommand.h"
#include "VerifyCauses.h"

namespace {

using namespace pluginsdk::internal;

constexpr tool::Words kWords = {
    "verify", "Tell whether the signature of a message is right, and what went wrong when it is not",
    R"(The checks are those of a receiver that uses this library, in the same order; the first that fails is
told. Where the signature does not fit, what usually happens to texts and keys is undone and tried, and
the cause found is told with its remedy. Nothing of the key is ever printed.

Exit status: 0 right, 1 wrong or not signed, 2 wrong arguments, or no JSON.

Example:
  echo '{"states":[]}' | pluginsdk sign --key-file key | pluginsdk verify --key-file key)"};

struct Options : tool::CommonOptions {
  std::string keyFile;
  bool asIs = false;
  bool indented = false;
  bool compact = false;
  bool anyCost = false;
};

constexpr std::string_view kMarker = "?authorization=";
constexpr std::size_t kOwnLength = 74;  // of a signature with the system's own parameters
constexpr std::string_view kSignatureBytes =
    "$ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// What is computed without --any-cost: 64 MiB sixteen times, about a second; each lane is a thread.
constexpr std::uint64_t kBearableWork = 1U << 20U;  // KiB times passes
constexpr unsigned kBearableLanes = 64;

bool Contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

std::string Quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// ---- The message, taken apart

struct Message {
  std::string text;  // as it is verified
  JsonPtr tree;
  std::string method;     // whole
  std::string bare;       // up to its first "?"
  std::string signature;  // behind the last marker
};

Message TakeApart(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  Message message{input.text, tool::ParseMessage(input), "", "", ""};
  if (options.indented || options.compact) {
    const JsonText printed = Print(message.tree.get(), options.indented);
    if (printed == nullptr) throw std::bad_alloc();
    message.text = printed.get();
  }
  message.method = StringMember(message.tree.get(), "method");
  message.bare = message.method.substr(0, message.method.find('?'));
  const std::size_t marker = message.method.rfind(kMarker);
  if (marker != std::string::npos) message.signature = message.method.substr(marker + kMarker.size());
  return message;
}

// The digested text: `written`, the method as it stands in the text, is cut short at its first "?".
std::string Unsigned(std::string text, std::string_view written) {
  const std::size_t at = text.find(written);
  const std::size_t cut = std::min(written.find('?'), written.size());
  return text.erase(at + cut, written.size() - cut);
}

// The method as a writer that escapes characters of it wrote it; empty when it is not there at all.
std::string_view MethodAsWritten(const Message& message) {
  for (const std::string_view token : tool::Tokens(message.text)) {
    if (token.front() != '"' || token.size() < message.method.size()) continue;
    const JsonPtr value(cJSON_Parse(std::string(token).c_str()));
    const char* const text = cJSON_GetStringValue(value.get());
    if (text != nullptr && text == message.method) return token.substr(1, token.size() - 2);
  }
  return "";
}

struct Parameters {
  unsigned memoryKiB = 0, passes = 0, lanes = 0;
};

std::optional<Parameters> ReadParameters(const std::string& signature) {
  Parameters p;
  char end = '\0';
  // Nine digits fit; no signature that can be computed needs more.
  const int read = std::sscanf(signature.c_str(), "$argon2id$v=19$m=%9u,t=%9u,p=%9u%c", &p.memoryKiB,
                               &p.passes, &p.lanes, &end);
  return read == 4 && end == '$' ? std::optional(p) : std::nullopt;
}

bool AreOwn(const Parameters& p) {
  constexpr VerificationLimits kOwn;  // the defaults are exactly what the system's own signatures cost
  return p.memoryKiB == kOwn.maxMemoryKiB && p.passes == kOwn.maxPasses && p.lanes == kOwn.maxLanes;
}

// ---- The checks, each with the reason why it fails, or an empty text

constexpr const char* kVerbatim = "verbatim";

struct Check {
  const char* name;
  std::string (*fails)(const Message& message, const Options& options);
};

std::string ParamsFail(const Message& message, const Options&) {
  if (cJSON_HasObjectItem(message.tree.get(), "params") != 0) return "";
  return R"(there are no "params": receivers drop it)";
}

std::string MethodFails(const Message& message, const Options&) {
  return message.method.empty() ? R"(there is no "method" with a text)" : "";
}

std::string VersionFails(const Message& message, const Options&) {
  if (Contains(message.bare, "v1")) {
    return Quoted(message.bare) + " contains \"v1\": nothing is signed, receivers accept it unverified";
  }
  return Contains(message.method, "v2") ? "" : Quoted(message.bare) + " is neither v1 nor v2: refused";
}

std::string MarkerFails(const Message& message, const Options&) {
  return Contains(message.method, kMarker) ? "" : "the method has no " + Quoted(kMarker);
}

std::string FormFails(const Message& message, const Options& options) {
  const std::string& signature = message.signature;
  const auto parameters = ReadParameters(signature);
  if (!parameters) {
    const bool tried = options.anyCost && signature.rfind("$argon2id$", 0) == 0;
    return tried ? "" : "it does not begin like $argon2id$v=19$m=64,t=16,p=8$";
  }
  if (AreOwn(*parameters) && signature.size() != kOwnLength) {
    return "it has " + std::to_string(signature.size()) + " characters, where " + std::to_string(kOwnLength) +
           " belong: cut, or something follows it";
  }
  const std::size_t base64 = signature.find('$', signature.find("p="));
  return signature.find_first_not_of(kSignatureBytes, base64) == std::string::npos
             ? ""
             : "it holds a character that no signature has";
}

std::string CostFails(const Message& message, const Options& options) {
  const Parameters p = ReadParameters(message.signature).value_or(Parameters());
  const bool bearable = std::uint64_t{p.memoryKiB} * p.passes <= kBearableWork && p.lanes <= kBearableLanes;
  return bearable || options.anyCost ? "" : "it asks for more than is computed without --any-cost";
}

std::string VerbatimFails(const Message& message, const Options&) {
  if (Contains(message.text, message.method)) return "";
  return "the method does not stand in the text as it reads, since characters of it are escaped: receivers "
         "throw std::out_of_range";
}

constexpr std::array<Check, 7> kChecks = {{
    {"params", ParamsFail},
    {"method", MethodFails},
    {"version", VersionFails},
    {"marker", MarkerFails},
    {"form", FormFails},
    {"cost", CostFails},
    {kVerbatim, VerbatimFails},
}};

// ---- The verdict

struct Verdict {
  std::string failedCheck;  // empty when the signature is right
  std::string reason;
  std::optional<tool::Cause> cause;
  std::vector<std::string> notes;
};

void AddNotes(const Message& message, Verdict& verdict) {
  const bool byChance = Contains(message.method, "v1") && !Contains(message.bare, "v1");
  if (byChance) {
    verdict.notes.emplace_back(
        "the signature contains \"v1\" by chance: receivers take the message for unsigned and accept it "
        "without a look, unless they refuse unsigned ones (VerificationLimits)");
  }
  const auto parameters = ReadParameters(message.signature);
  if (parameters && !AreOwn(*parameters)) {
    verdict.notes.push_back("the signature asks for m=" + std::to_string(parameters->memoryKiB) + ",t=" +
                            std::to_string(parameters->passes) + ",p=" + std::to_string(parameters->lanes) +
                            ": receivers with VerificationLimits may refuse it");
  }
}

// Looks for the cause; the text is the one to digest.
void Explain(Message& message, const std::string& text, const tool::AccessKey& key, const tool::Fits& fits,
             Verdict& verdict) {
  cJSON_SetValuestring(cJSON_GetObjectItem(message.tree.get(), "method"), message.bare.c_str());
  const tool::Search search = tool::FindCause({text, message.tree.get(), message.bare}, key, fits);
  verdict.cause = search.cause;
  if (!search.complete)
    verdict.notes.emplace_back("the search for the cause was given up: it takes too long");
  if (!search.cause && search.complete) {
    verdict.notes.emplace_back(
        "the text was changed after signing, or the key is another one: nothing tells these apart");
  }
}

void VerifyDigest(Message& message, const tool::AccessKey& key, Verdict& verdict) {
  const bool escaped = !verdict.failedCheck.empty();
  const std::string text = Unsigned(message.text, escaped ? MethodAsWritten(message) : message.method);
  const tool::Fits fits = [&message](const std::string& digest, const tool::AccessKey& tried) {
    return CPluginUtil::VerifySignature(digest, tried.Bytes(), message.signature);
  };
  std::string digest;
  const bool right = CPluginUtil::GetSignDigest(text, &digest) && fits(digest, key);
  if (right && escaped) {
    verdict.cause = {"the signer escapes characters of the method", "sign and send it as it reads"};
  }
  if (right) return;
  if (!escaped) {
    verdict.failedCheck = "signature";
    verdict.reason = "it does not fit this text and this key";
  }
  Explain(message, text, key, fits, verdict);
}

Verdict Judge(Message& message, const tool::AccessKey& key, const Options& options) {
  Verdict verdict;
  AddNotes(message, verdict);
  for (const Check& check : kChecks) {
    verdict.reason = check.fails(message, options);
    if (verdict.reason.empty()) continue;
    verdict.failedCheck = check.name;
    break;
  }
  if (verdict.failedCheck.empty() || verdict.failedCheck == kVerbatim) VerifyDigest(message, key, verdict);
  return verdict;
}

// ---- The answer

void PrintLines(const Verdict& verdict) {
  const std::string failure = "wrong: " + verdict.failedCheck + ": " + verdict.reason;
  std::cout << "signature: " << (verdict.failedCheck.empty() ? "right" : failure) << "\n";
  if (verdict.cause) {
    std::cout << "cause: " << verdict.cause->what << "\nmend: " << verdict.cause->remedy << "\n";
  }
  for (const std::string& note : verdict.notes) std::cout << "note: " << note << "\n";
}

void AddTextOrNull(cJSON* answer, const char* key, const std::string& text) {
  Attach(answer, key, JsonPtr(text.empty() ? cJSON_CreateNull() : cJSON_CreateString(text.c_str())));
}

void PrintJson(const Message& message, const Verdict& verdict) {
  const JsonPtr answer = NewObject();
  const tool::Cause cause = verdict.cause.value_or(tool::Cause());
  const char* const version =
      Contains(message.bare, "v1") ? "v1" : (Contains(message.method, "v2") ? "v2" : "");
  AddBool(answer.get(), "valid", verdict.failedCheck.empty());
  AddTextOrNull(answer.get(), "failedCheck", verdict.failedCheck);
  AddTextOrNull(answer.get(), "reason", verdict.reason);
  AddTextOrNull(answer.get(), "cause", cause.what);
  AddTextOrNull(answer.get(), "remedy", cause.remedy);
  AddTextOrNull(answer.get(), "method", message.bare);
  AddTextOrNull(answer.get(), "apiVersion", version);
  JsonPtr notes = NewArray();
  for (const std::string& note : verdict.notes)
    Append(notes.get(), JsonPtr(cJSON_CreateString(note.c_str())));
  Attach(answer.get(), "notes", std::move(notes));
  tool::PrintAnswer(answer.get());
}

ExitCode Run(const Options& options) {
  Message message = TakeApart(options);
  const Verdict verdict = Judge(message, tool::ReadKeyFile(options.keyFile), options);
  if (options.json) {
    PrintJson(message, verdict);
  } else {
    PrintLines(verdict);
  }
  return verdict.failedCheck.empty() ? kDone : kVerdictNo;
}

}  // namespace

void AddVerifyCommand(CLI::App& app, ExitCode& exitCode) {
  const auto options = std::make_shared<Options>();
  CLI::App* verify =
      tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
  verify->add_option("--key-file", options->keyFile, tool::kKeyFileHelp)->type_name("KEYFILE")->required();
  CLI::Option* asIs = verify->add_flag("--as-is", options->asIs, "verify the text as it came (the default)");
  CLI::Option* indented =
      verify->add_flag("--indented", options->indented, "verify what cJSON_Print makes of it")
          ->excludes(asIs);
  verify->add_flag("--compact", options->compact, "verify what cJSON_PrintUnformatted makes of it")
      ->excludes(asIs)
      ->excludes(indented);
  verify->add_flag("--any-cost", options->anyCost,
                   "compute whatever the signature asks for: memory and time may be absurd");
}
