/// @file
/// `pluginsdk mask`: a text as the log would show it.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`. When it is given, it runs during the parsing and leaves its result in
/// `exitCode`. Both references must outlive the parsing.
void AddMaskCommand(CLI::App& app, ExitCode& exitCode);
