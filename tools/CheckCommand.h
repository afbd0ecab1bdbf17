/// @file
/// `pluginsdk check`: every fault of a request before it is sent.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`; see AddSubcommand. Leaves kDone without faults, else kVerdictNo.
void AddCheckCommand(CLI::App& app, ExitCode& exitCode);
