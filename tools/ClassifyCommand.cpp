#include "ClassifyCommand.h"

#include <iostream>
#include <memory>
#include <string>

#include "BasePluginObject.h"
#include "Input.h"
#include "JsonBuild_internal.h"
#include "Subcommand.h"
#include "Terminal.h"

namespace {

using namespace pluginsdk::internal;

constexpr tool::Words kWords = {
    "classify", "Tell which kind of message a received text is",
    R"(The first line is the type as CPluginUtil::GetMessageType gives it; its extra text follows when there is
one: the error, or the params of an agent event that tells of the server's connectivity. A terminal gets it with
control characters escaped, a file or a pipe every byte as it is.

Exit status: 0 a message that plugins act on, 1 "error" and "others", 2 wrong arguments, or no JSON
(which is "others" too).

Example:
  echo '{"method":"v1/notifyPluginCommand","params":{}}' | pluginsdk classify)"};

void Print(const std::string& type, const char* extra, bool json) {
  if (!json) {
    std::cout << type << "\n";
    if (extra != nullptr) std::cout << (tool::IsTerminal() ? tool::ClearLines(extra) : extra) << "\n";
    return;
  }
  const JsonPtr answer = NewObject();
  AddString(answer.get(), "type", type);
  Attach(answer.get(), "extra", extra == nullptr ? JsonPtr(cJSON_CreateNull()) : Parse(extra));
  tool::PrintAnswer(answer.get());
}

ExitCode Run(const tool::CommonOptions& options) {
  const tool::Input input = tool::ReadInput(options.file);
  std::string type;
  const JsonText extra(CPluginUtil::GetMessageType(input.text.c_str(), &type));
  Print(type, extra.get(), options.json);
  const bool unknown = type == MessageType::error || type == MessageType::others;
  if (unknown) tool::ParseMessage(input);  // tells where a text is not JSON
  return unknown ? kVerdictNo : kDone;
}

}  // namespace

void AddClassifyCommand(CLI::App& app, ExitCode& exitCode) {
  const auto options = std::make_shared<tool::CommonOptions>();
  tool::AddSubcommand(app, kWords, *options, exitCode, [options] { return Run(*options); });
}
