/// @file
/// What all subcommands that look at a text have in common: where it comes from, how they answer, how they
/// end.
#pragma once

#include <cjson/cJSON.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "ExitCode.h"

namespace tool {

/// Options of every subcommand.
struct CommonOptions {
  std::string file;   ///< empty or "-" for standard input
  bool json = false;  ///< the answer as one JSON document instead of lines for a reader
};

struct Words {
  const char* name;
  const char* description;  ///< one line, for the list of subcommands
  const char* footer;       ///< below the options: what the exit status means, and an example
};

/// Adds a subcommand with FILE and --json. When it is given, `run` runs during the parsing and its result is
/// left in `exitCode`; an Unusable that leaves it is told on standard error and gives kCannotRun. `common`
/// must be kept alive by `run`; `exitCode` must outlive the parsing.
CLI::App* AddSubcommand(CLI::App& app, const Words& words, CommonOptions& common, ExitCode& exitCode,
                        std::function<ExitCode()> run);

/// Prints the answer of --json. Bytes of it that are not UTF-8, which JSON cannot hold, become U+FFFD.
void PrintAnswer(const cJSON* answer);

}  // namespace tool
