/// @file
/// How every subcommand of the tool ends.
#pragma once

enum ExitCode {
  kDone = 0,
  kVerdictNo = 1,  ///< what was looked at is not right, or cannot be relied on
  kCannotRun = 2   ///< wrong arguments, or nothing there to look at
};
