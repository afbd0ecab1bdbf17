/// @file
/// Internal, not installed: the one door by which the platform wrappers reach the log. The wrappers stand
/// below the logging facility, which is built on them; this declaration keeps the includes one-way.
#pragma once

/// Logs a warning (level 3) or a progress line (level 2) of a wrapper, as UTL_LOGPrint does. Defined by the
/// log core. A thread that is already inside the facility holds its locks and may be in the middle of a
/// line: its message goes, as one line, straight to standard output (to standard error when standard output
/// is switched off), takes no lock, translates no further error and therefore always ends.
void UTLWarn(int level, const char* file, int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
