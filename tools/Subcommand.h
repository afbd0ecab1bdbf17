/// @file
/// What all subcommands that look at a text have in common: where it comes from, how they answer, how they
/// end.
#pragma once

#include <cjson/cJSON.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>

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

/// A text with everything escaped that a terminal would obey or not show, so that no text of others passes
/// for words of the tool. Escaped too: ends of lines.
std::string Clear(std::string_view text);
/// The same of a printed document, whose line ends and tabs stay.
std::string ClearLines(std::string_view text);

/// A line on standard error: "note: " and the text, clear.
void Note(std::string_view text);

/// Prints the answer of --json. Bytes of it that are not UTF-8, which JSON cannot hold, become U+FFFD.
void PrintAnswer(const cJSON* answer);

}  // namespace tool
