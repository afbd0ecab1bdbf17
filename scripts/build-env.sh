# shellcheck shell=bash
# Sourced by the scripts that build: how many jobs, and a compiler cache where there is one that this user can
# write to.
JOBS=${JOBS:-$(nproc)}
if command -v ccache >/dev/null && cache=$(ccache --get-config cache_dir 2>/dev/null) &&
  mkdir -p "$cache" 2>/dev/null && [ -w "$cache" ]; then
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi
