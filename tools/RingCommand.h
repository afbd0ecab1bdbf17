/// @file
/// `pluginsdk ring`: what a process has in its in-memory log, or had when it died.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`. When it is given, it runs during the parsing and leaves its result in
/// `exitCode`: kDone; kVerdictNo when a header is not consistent; kCannotRun when there is no such
/// segment or file. Both references must outlive the parsing.
void AddRingCommand(CLI::App& app, ExitCode& exitCode);
