/// @file
/// `pluginsdk sign`: the bytes of a request to send, made of its params.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`. When it is given, it runs during the parsing and leaves its result in
/// `exitCode`: kVerdictNo for a request above the size limit. Both references must outlive the parsing.
void AddSignCommand(CLI::App& app, ExitCode& exitCode);
