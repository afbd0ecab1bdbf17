/// @file
/// `pluginsdk classify`: which kind of message a received text is.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`. When it is given, it runs during the parsing and leaves its result in
/// `exitCode`: kDone for what a plugin acts on, kVerdictNo for "error" and "others". Both references must
/// outlive the parsing.
void AddClassifyCommand(CLI::App& app, ExitCode& exitCode);
