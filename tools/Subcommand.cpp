#include "Subcommand.h"

#include <iostream>
#include <new>
#include <utility>

#include "Input.h"
#include "JsonBuild_internal.h"
#include "JsonTokens.h"

namespace tool {

namespace {

ExitCode RunOrTell(const std::string& name, const std::function<ExitCode()>& run) {
  try {
    return run();
  } catch (const Unusable& reason) {
    std::cout.flush();
    std::cerr << "pluginsdk " << name << ": " << reason.what() << "\n";
    return kCannotRun;
  }
}

}  // namespace

CLI::App* AddSubcommand(CLI::App& app, const Words& words, CommonOptions& common, ExitCode& exitCode,
                        std::function<ExitCode()> run) {
  CLI::App* subcommand = app.add_subcommand(words.name, words.description);
  subcommand->footer(words.footer);
  subcommand->add_option("FILE", common.file, "what to look at; standard input when it is left out or -");
  subcommand->add_flag("--json", common.json, "answer with one JSON document");
  subcommand->callback(
      [name = std::string(words.name), run = std::move(run), &exitCode] { exitCode = RunOrTell(name, run); });
  return subcommand;
}

void PrintAnswer(const cJSON* answer) {
  const pluginsdk::internal::JsonText text = pluginsdk::internal::Print(answer, true);
  if (text == nullptr) throw std::bad_alloc();
  std::cout << ValidUtf8(text.get()) << "\n";
}

}  // namespace tool
