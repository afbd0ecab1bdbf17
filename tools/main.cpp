// `pluginsdk`: the command-line tool of the library. Each subcommand lives in a file of its own.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CheckCommand.h"
#include "ClassifyCommand.h"
#include "DescribeCommand.h"
#include "ExitCode.h"
#include "MaskCommand.h"
#include "PluginSDK_version.h"
#include "RingCommand.h"
#include "SignCommand.h"
#include "Subcommand.h"
#include "Utl_Log.h"
#include "VerifyCommand.h"

namespace {

// Standard output is for answers. What the library would log of a rejected text is part of ours.
void SilenceTheLog(const char* program) {
  UTL_LOGInit(program, nullptr);
  UTL_LOGSetWriteToStdout(false);
}

ExitCode TellUsageError(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> unknown = app.remaining();
  const bool noSubcommand = app.get_subcommands().empty() && !unknown.empty();
  const std::string text = noSubcommand ? "no subcommand or option \"" + unknown.front() + '"' : error.what();
  std::cerr << tool::Clear(text) << "\nRun with --help for more information.\n";
  return kCannotRun;
}

ExitCode RunTool(int argc, char** argv) {
  SilenceTheLog(argv[0]);
  CLI::App app("Looks after plugins that use PluginSDK", "pluginsdk");
  app.set_version_flag("--version", PLUGINSDK_VERSION_STRING);
  app.require_subcommand(1);
  ExitCode exitCode = kDone;
  AddCheckCommand(app, exitCode);
  AddDescribeCommand(app, exitCode);
  AddClassifyCommand(app, exitCode);
  AddVerifyCommand(app, exitCode);
  AddSignCommand(app, exitCode);
  AddMaskCommand(app, exitCode);
  AddRingCommand(app, exitCode);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    app.exit(help);  // asking for help ends the parsing too
  } catch (const CLI::ParseError& error) {
    return TellUsageError(app, error);
  }
  std::cout.flush();
  if (!std::cout) throw std::runtime_error("standard output cannot be written");
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunTool(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "pluginsdk: %s\n", error.what());
  } catch (...) {
    std::fputs("pluginsdk: unknown error\n", stderr);
  }
  return kCannotRun;
}
