/// @file
/// `pluginsdk describe`: the model that a registration declares.
#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

/// Adds the subcommand to `app`; see AddSubcommand. Leaves kVerdictNo for a document that is no registration.
void AddDescribeCommand(CLI::App& app, ExitCode& exitCode);
