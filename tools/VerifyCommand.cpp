#include "VerifyCommand.h"

#include <argon2.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BasePluginObject.h"
#include "EncodedHash.h"
#include "Input.h"
#include "JsonBuild_internal.h"
#include "JsonFault.h"
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
// What is computed without --any-cost: 64 MiB sixteen times, about a second; each lane is a thread.
constexpr std::uint64_t kBearableWork = 1U << 20U;  // KiB times passes
constexpr unsigned kBearableLanes = 64;

bool Contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

constexpr std::size_t kOwnSize = 16;  // of salt and hash, in bytes

std::string Quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// ---- The message, taken apart

struct Message {
  std::string text;  // as it is verified
  JsonPtr tree;
  std::string method;      // whole
  std::string bare;        // up to its first "?"
  std::string signature;   // behind the last marker
  tool::EncodedHash hash;  // the same, taken apart
  std::size_t behind = 0;  // bytes that follow the document, unless they are blanks
};

Message TakeApart(const Options& options) {
  const tool::Input input = tool::ReadInput(options.file);
  Message message{input.text, tool::ParseMessage(input), "", "", "", {}, 0};
  if (options.indented || options.compact) {
    const JsonText printed = Print(message.tree.get(), options.indented);
    if (printed == nullptr) throw std::bad_alloc();
    message.text = printed.get();
  }
  const std::string_view rest = std::string_view(message.text).substr(tool::EndOfDocument(message.text));
  if (rest.find_first_not_of(" \t\r\n") != std::string_view::npos) message.behind = rest.size();
  message.method = StringMember(message.tree.get(), "method");
  message.bare = message.method.substr(0, message.method.find('?'));
  const std::size_t marker = message.method.rfind(kMarker);
  if (marker != std::string::npos) message.signature = message.method.substr(marker + kMarker.size());
  message.hash = tool::ReadEncodedHash(message.signature);
  return message;
}

// The digested text: the method, which stands in the text at `at` as `written`, is cut short at its first
// "?".
std::string Unsigned(std::string text, std::size_t at, std::string_view written) {
  const std::size_t cut = std::min(written.find('?'), written.size());
  return text.erase(at + cut, written.size() - cut);
}

// The method where it first stands in the text, be it with escaped characters.
std::string_view MethodAsWritten(const Message& message) {
  const std::size_t at = message.text.find(message.method);
  if (at != std::string::npos) return std::string_view(message.text).substr(at, message.method.size());
  for (const std::string_view token : tool::Tokens(message.text)) {
    if (token.front() != '"' || token.size() < message.method.size()) continue;
    const JsonPtr value(cJSON_Parse(std::string(token).c_str()));
    const char* const text = cJSON_GetStringValue(value.get());
    if (text != nullptr && text == message.method) return token.substr(1, token.size() - 2);
  }
  return std::string_view(message.text).substr(0, 0);
}

bool HasOwnParameters(const tool::EncodedHash& hash) {
  constexpr VerificationLimits kOwn;  // the defaults are exactly what the system's own signatures cost
  return hash.version == 19 && hash.memoryKiB == kOwn.maxMemoryKiB && hash.passes == kOwn.maxPasses &&
         hash.lanes == kOwn.maxLanes;
}

bool HasOwnSizes(const tool::EncodedHash& hash) {
  return hash.saltSize == kOwnSize && hash.hashSize == kOwnSize;
}

// Letters that a signature holds by chance belong to it.
std::string_view WithoutSignature(const Message& message) {
  return std::string_view(message.method).substr(0, message.method.size() - message.signature.size());
}

bool SaysV1ByChance(const Message& message) {
  return Contains(message.signature, "v1") && !Contains(WithoutSignature(message), "v1");
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
  const std::string_view named = WithoutSignature(message);
  if (Contains(named, "v1")) {
    return Quoted(Contains(message.bare, "v1") ? message.bare : named) +
           " contains \"v1\": nothing is signed, receivers accept it unverified";
  }
  return Contains(message.method, "v2") ? "" : Quoted(message.bare) + " is neither v1 nor v2: refused";
}

std::string MarkerFails(const Message& message, const Options&) {
  return Contains(message.method, kMarker) ? "" : "the method has no " + Quoted(kMarker);
}

std::string FormFails(const Message& message, const Options&) {
  return message.hash.flaw;
}

std::string AskedFor(const tool::EncodedHash& hash) {
  return "m=" + std::to_string(hash.memoryKiB) + ",t=" + std::to_string(hash.passes) +
         ",p=" + std::to_string(hash.lanes);
}

std::string CostFails(const Message& message, const Options& options) {
  const tool::EncodedHash& hash = message.hash;
  const std::uint64_t work = std::uint64_t{hash.memoryKiB} * hash.passes;
  if (options.anyCost || (work <= kBearableWork && hash.lanes <= kBearableLanes)) return "";
  return "it asks for " + AskedFor(hash) + ", more than is computed without --any-cost";
}

std::string VerbatimFails(const Message& message, const Options&) {
  if (Contains(message.text, message.method)) return "";
  const std::string throwing =
      SaysV1ByChance(message) ? "receivers with VerificationLimits throw" : "receivers throw";
  return "the method does not stand in the text as it reads, since characters of it are escaped: " +
         throwing + " std::out_of_range";
}

constexpr std::array<Check, 7> kChecks = {{
    {"params", ParamsFail},
    {"method", MethodFails},
    {"version", VersionFails},
    {kVerbatim, VerbatimFails},
    {"marker", MarkerFails},
    {"form", FormFails},
    {"cost", CostFails},
}};

// ---- The verdict

struct Verdict {
  std::string failedCheck;  // empty when the signature is right
  std::string reason;
  std::optional<tool::Cause> cause;
  std::vector<std::string> notes;
};

std::string NoteOfLimits(const Message& message) {
  constexpr VerificationLimits kLimits;
  const tool::EncodedHash& hash = message.hash;
  std::string beyond;
  const auto refuseFor = [&beyond](bool isBeyond, const char* why) {
    if (isBeyond) beyond += std::string(beyond.empty() ? "" : ", ") + why;
  };
  refuseFor(hash.version != 19 || !Contains(message.signature, "$v="), "version");
  refuseFor(hash.memoryKiB > kLimits.maxMemoryKiB, "memory");
  refuseFor(hash.passes > kLimits.maxPasses, "passes");
  refuseFor(hash.lanes > kLimits.maxLanes, "lanes");
  refuseFor(message.signature.size() > kLimits.maxSignatureLength, "length");
  return "the signature has version " + std::to_string(hash.version) + ", " + AskedFor(hash) +
         ", a salt of " + std::to_string(hash.saltSize) + " and a hash of " + std::to_string(hash.hashSize) +
         " bytes, other than the system's own: receivers " +
         (beyond.empty() ? "accept that" : "with VerificationLimits refuse it for its " + beyond);
}

void AddNotes(const Message& message, Verdict& verdict) {
  const auto note = [&verdict](bool holds, const std::string& text) {
    if (holds) verdict.notes.push_back(text);
  };
  note(SaysV1ByChance(message),
       "the signature contains \"v1\" by chance: receivers take the message for unsigned and accept it "
       "without a look, unless they refuse unsigned ones (VerificationLimits)");
  const bool isOwn = HasOwnParameters(message.hash) && HasOwnSizes(message.hash);
  note(message.hash.flaw.empty() && !isOwn, NoteOfLimits(message));
  std::size_t methods = 0;
  for (const cJSON* member : Children(message.tree.get())) {
    if (member->string != nullptr && ::strcasecmp(member->string, "method") == 0) ++methods;
  }
  note(methods > 1, std::to_string(methods) + " members are named \"method\": receivers take the first");
  note(message.text.find(message.method) != message.text.rfind(message.method),
       "the whole method stands more than once in the text: receivers cut the first one short");
  note(message.behind > 0, std::to_string(message.behind) +
                               " bytes follow the JSON document: receivers do not read, but digest them");
}

// ---- The signature itself

enum class Outcome { kRight, kWrong, kCannot };

// The library does not tell a hash that is wrong from one for which memory or threads are lacking.
Outcome Compute(const std::string& digest, const tool::AccessKey& key, const Message& message) {
  if (CPluginUtil::VerifySignature(digest, key.Bytes(), message.signature)) return Outcome::kRight;
  if (HasOwnParameters(message.hash)) return Outcome::kWrong;
  const tool::AccessKey password(digest + "|", key.Bytes());
  const int result =
      argon2id_verify(message.signature.c_str(), password.Bytes().data(), password.Bytes().size());
  return result == ARGON2_VERIFY_MISMATCH ? Outcome::kWrong : Outcome::kCannot;
}

// Why it does not fit; the text is the one to digest.
void Explain(Message& message, const std::string& text, const tool::AccessKey& key, const tool::Fits& fits,
             Verdict& verdict) {
  cJSON_SetValuestring(cJSON_GetObjectItem(message.tree.get(), "method"), message.bare.c_str());
  const tool::Search search = tool::FindCause({text, message.tree.get(), message.bare}, key, fits);
  verdict.cause = search.cause;
  if (search.cause) return;
  if (HasOwnParameters(message.hash) && !HasOwnSizes(message.hash)) {
    verdict.cause = {"the signature has " + std::to_string(message.signature.size()) +
                         " characters, where 74 belong: it was cut, or something follows it",
                     "send the method whole"};
  }
  verdict.notes.emplace_back(
      search.complete
          ? "none of the usual causes fits: the text was changed in another way after signing, or the key is "
            "another one; nothing tells these apart"
          : "the search for the cause was given up: it takes too long");
}

void VerifyDigest(Message& message, const tool::AccessKey& key, Verdict& verdict) {
  const bool escaped = !verdict.failedCheck.empty();
  const std::string_view written = MethodAsWritten(message);
  const auto at = static_cast<std::size_t>(written.data() - message.text.data());
  const std::string text = Unsigned(message.text, at, written);
  std::string digest;
  const Outcome outcome =
      CPluginUtil::GetSignDigest(text, &digest) ? Compute(digest, key, message) : Outcome::kWrong;
  if (outcome == Outcome::kRight) {
    if (escaped)
      verdict.cause = {"the signer escapes characters of the method", "sign and send it as it reads"};
    return;
  }
  if (!escaped) {
    verdict.failedCheck = "signature";
    verdict.reason =
        outcome == Outcome::kWrong
            ? "it does not fit this text and this key"
            : "it cannot be computed here: not enough memory or threads for " + AskedFor(message.hash);
  }
  if (outcome == Outcome::kCannot) return;
  const tool::Fits fits = [&message](const std::string& other, const tool::AccessKey& tried) {
    return CPluginUtil::VerifySignature(other, tried.Bytes(), message.signature);
  };
  const std::size_t last = message.text.rfind(message.method);
  if (!escaped && last != at &&
      CPluginUtil::GetSignDigest(Unsigned(message.text, last, message.method), &digest) &&
      fits(digest, key)) {
    verdict.cause = {
        "the method with its signature also stands earlier in the text, and receivers cut that one",
        "do not quote the method in front of it"};
    return;
  }
  Explain(message, text, key, fits, verdict);
}

Verdict Judge(Message& message, const tool::AccessKey& key, const Options& options) {
  Verdict verdict;
  AddNotes(message, verdict);
  for (const Check& check : kChecks) {
    const std::string reason = check.fails(message, options);
    if (reason.empty()) continue;
    // An escaped method is the sender's fault alone: the signature is looked at all the same.
    if (!verdict.failedCheck.empty()) return verdict;
    verdict.failedCheck = check.name;
    verdict.reason = reason;
    if (verdict.failedCheck != kVerbatim) return verdict;
  }
  VerifyDigest(message, key, verdict);
  return verdict;
}

// ---- The answer

void PrintLines(const Verdict& verdict) {
  const std::string failure = "wrong: " + verdict.failedCheck + ": " + verdict.reason;
  std::cout << "signature: " << (verdict.failedCheck.empty() ? "right" : tool::Clear(failure)) << "\n";
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
      Contains(WithoutSignature(message), "v1") ? "v1" : (Contains(message.method, "v2") ? "v2" : "");
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
