#include "Subcommand.h"

#include <algorithm>
#include <iostream>
#include <new>
#include <utility>

#include "Input.h"
#include "JsonBuild_internal.h"
#include "JsonTokens.h"
#include "Terminal.h"

namespace tool {

namespace {

ExitCode RunOrTell(const std::string& name, const std::function<ExitCode()>& run) {
  try {
    return run();
  } catch (const Unusable& reason) {
    std::cout.flush();
    std::cerr << "pluginsdk " << name << ": " << Clear(reason.what()) << "\n";
    return kCannotRun;
  }
}

std::string NotEmpty(const std::string& file) {
  return file.empty() ? "a file without a name" : "";
}

}  // namespace

CLI::App* AddSubcommand(CLI::App& app, const Words& words, CommonOptions& common, ExitCode& exitCode,
                        std::function<ExitCode()> run) {
  CLI::App* subcommand = app.add_subcommand(words.name, words.description);
  subcommand->footer(words.footer);
  subcommand->add_option("FILE", common.file, "what to look at; standard input when it is left out or -")
      ->check(NotEmpty, "");
  subcommand->add_flag("--json", common.json, "answer with one JSON document");
  subcommand->callback(
      [name = std::string(words.name), run = std::move(run), &exitCode] { exitCode = RunOrTell(name, run); });
  return subcommand;
}

std::string Clear(std::string_view text) {
  static const bool ascii = !UseLocaleOfUser();
  return Shown(text, ascii);
}

std::string ClearLines(std::string_view text) {
  std::string clear;
  while (true) {
    const std::size_t size = std::min(text.find_first_of("\n\t"), text.size());
    clear += Clear(text.substr(0, size));
    if (size == text.size()) return clear;
    clear += text[size];
    text.remove_prefix(size + 1);
  }
}

void Note(std::string_view text) {
  std::cerr << "note: " << Clear(text) << "\n";
}

void PrintAnswer(const cJSON* answer) {
  const pluginsdk::internal::JsonText text = pluginsdk::internal::Print(answer, true);
  if (text == nullptr) throw std::bad_alloc();
  std::cout << ValidUtf8(text.get()) << "\n";
}

}  // namespace tool
