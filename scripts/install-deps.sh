#!/usr/bin/env bash
# Installs what the project builds with, from Debian's packages. Quiet when nothing is missing.
#
#   scripts/install-deps.sh            the library, its tests, examples and tools
#   scripts/install-deps.sh check      ... and what the slower checks of CI need
#   scripts/install-deps.sh bench      ... and the peers that the benchmarks compare with
#   scripts/install-deps.sh fuzz       ... and clang with its fuzzing runtime
# Groups may be combined.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libcjson-dev libargon2-dev libssl-dev libgtest-dev libcli11-dev)
for group in "$@"; do
  case "$group" in
    check) packages+=(clang clang-format clang-tidy libclang-rt-14-dev valgrind abigail-tools gcovr git binutils python3) ;;
    bench) packages+=(libbenchmark-dev libspdlog-dev nlohmann-json3-dev rapidjson-dev python3) ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    *) echo "install-deps.sh: unknown group '$group' (known: check, bench, fuzz)" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  # A tool that is on the path already (a compiler built by hand, say) needs no package.
  case "$package" in
    g++ | cmake | git | python3 | valgrind | gcovr) command -v "$package" >/dev/null && continue ;;
    ninja-build) command -v ninja >/dev/null && continue ;;
  esac
  dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-deps.sh: these packages are missing: ${missing[*]}" >&2
    echo "install-deps.sh: run this script as root, or install sudo, or: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1; }
# Package lists may be absent or old: only then is the slower update worth its time.
if ! install; then
  if ! { "${as_root[@]}" apt-get update >"$log" 2>&1 && install; }; then
    cat "$log" >&2
    echo "install-deps.sh: could not install: ${missing[*]}" >&2
    exit 1
  fi
fi
