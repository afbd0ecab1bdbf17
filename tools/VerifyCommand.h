/// @file
/// `pluginsdk verify`: whether the signature of a message is right, and what went wrong when it is not.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`. When it is given, it runs during the parsing and leaves its result in
/// `exitCode`: kVerdictNo for every message but a rightly signed one. Both references must outlive the
/// parsing.
void AddVerifyCommand(CLI::App& app, ExitCode& exitCode);
