/// @file
/// How every subcommand of the tool ends.
#pragma once

enum ExitCode {
  kDone = 0,
  kNotConsistent = 1,  ///< what was looked at cannot be relied on
  kCannotRun = 2       ///< wrong arguments, or nothing there to look at
};
