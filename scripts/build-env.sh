# shellcheck shell=bash
# Sourced by the scripts that build: how many jobs, and a compiler cache where there is one.
JOBS=${JOBS:-$(nproc)}
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi
