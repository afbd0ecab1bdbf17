// What the fuzz targets share: a check that ends the run, and a silent facility.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Utl_Log.h"

// assert() that no build type turns off.
#define FUZZ_CHECK(condition)                                                      \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)

// Log lines are formatted, which is part of what is tested, but reach no destination.
inline void SilenceLog() {
  UTL_LOGInit("fuzz", nullptr);
  UTL_LOGSetWriteToStdout(false);
}

// Whether every Argon2 encoding in the text asks for little enough to be computed here: a fuzzer soon
// finds "m=4000000", and the library accepts it by contract.
inline bool IsAffordable(std::string_view text) {
  for (std::size_t at = text.find("$m="); at != std::string_view::npos; at = text.find("$m=", at + 1)) {
    unsigned memory = 0;
    unsigned passes = 0;
    unsigned lanes = 0;
    const std::string parameters(text.substr(at, 40));
    if (std::sscanf(parameters.c_str(), "$m=%9u,t=%9u,p=%9u", &memory, &passes, &lanes) < 3) continue;
    if (memory > 256 || passes > 16 || lanes > 8 || parameters.find_first_of("+- \t\n") != std::string::npos)
      return false;
  }
  return true;
}
