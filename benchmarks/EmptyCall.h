#pragma once

/// Does nothing, in a shared library of its own, with the arguments of a call that logs.
__attribute__((visibility("default"))) void EmptyCall(int level, const char* file, int line,
                                                      const char* function, const char* format, ...);
