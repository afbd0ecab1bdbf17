#include "Subcommand.h"

#include <iostream>
#include <utility>

#include "Input.h"

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
  subcommand->callback([name = std::string(words.name), run = std::move(run), &exitCode] {
    exitCode = RunOrTell(name, run);
  });
  return subcommand;
}

}  // namespace tool
