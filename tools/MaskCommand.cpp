#include "MaskCommand.h"

#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>

#include "Input.h"
#include "JsonBuild_internal.h"
#include "Subcommand.h"
#include "Utl_LogMask_internal.h"

namespace {

using namespace pluginsdk::internal;

constexpr tool::Words kWords = {
    "mask", "Print a text as the log would show it",
    R"(Each credential that Util_LogSensitiveString knows becomes one asterisk; all other bytes stay as they
are. The log takes a text up to its first zero byte, and so does this command.

Exit status: 0, or 2 for wrong arguments or a file that cannot be read.

Example:
  echo 'user=bob&serPwd=secret&lang=en' | pluginsdk mask)"};

void CutAtZero(tool::Input& input) {
  const std::size_t zero = input.text.find('\0');
  if (zero == std::string::npos) return;
  tool::Note(input.name + ": the log shows " + std::to_string(zero) + " of " +
             std::to_string(input.text.size()) + " bytes, up to the first zero byte");
  input.text.resize(zero);
}

void PrintJson(const std::string& masked, bool changed) {
  const JsonPtr answer = NewObject();
  AddString(answer.get(), "text", masked);
  AddBool(answer.get(), "masked", changed);
  tool::PrintAnswer(answer.get());
}

ExitCode Run(const tool::CommonOptions& options) {
  tool::Input input = tool::ReadBytes(options.file);
  CutAtZero(input);
  std::string masked = input.text;
  masked.resize(pluginsdk::log::MaskCredentials(masked.data(), masked.size()));
  if (options.json) {
    PrintJson(masked, masked != input.text);
    return kDone;
  }
  std::cout << masked;
  const bool openLine = !masked.empty() && masked.back() != '\n';
  if (openLine && ::isatty(STDOUT_FILENO) == 1) std::cout << "\n";
  return kDone;
}

}  // namespace

void AddMaskCommand(CLI::App& app, ExitCode& exitCode) {
  const auto options = std::make_shared<tool::CommonOptions>();
  tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
}
