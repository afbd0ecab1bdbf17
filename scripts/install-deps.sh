#!/usr/bin/env bash
# Installs what the project builds with, from Debian's packages. Quiet when nothing is missing.
#
#   scripts/install-deps.sh            the library, its tests, examples and tools
#   scripts/install-deps.sh check      ... and what the slower checks of CI need
#   scripts/install-deps.sh bench      ... and the peers that the benchmarks compare with
#   scripts/install-deps.sh fuzz       ... and clang with its fuzzing runtime
#   scripts/install-deps.sh mqtt       ... and what the example over MQTT and its test need
#   scripts/install-deps.sh docs       ... and what the reference is made with
#   scripts/install-deps.sh package    ... and what Debian packages are made and tried with
# Groups may be combined.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config python3 libcjson-dev libargon2-dev libssl-dev libgtest-dev libcli11-dev)
for group in "$@"; do
  case "$group" in
    check)
      packages+=(clang clang-format clang-tidy libclang-rt-14-dev valgrind abigail-tools gcovr git binutils
        python3 shellcheck groff)
      ;;
    bench) packages+=(libbenchmark-dev libspdlog-dev nlohmann-json3-dev rapidjson-dev python3) ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    mqtt) packages+=(libmosquitto-dev mosquitto) ;;
    docs) packages+=(doxygen graphviz python3) ;;
    package) packages+=(dpkg-dev debootstrap file) ;;
    *) echo "install-deps.sh: unknown group '$group' (known: check, bench, fuzz, mqtt, docs, package)" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  # A tool that is on the path already (a compiler built by hand, say) needs no package.
  case "$package" in
    g++ | cmake | git | python3 | valgrind | gcovr | shellcheck | pkg-config)
      command -v "$package" >/dev/null && continue
      ;;
    ninja-build) command -v ninja >/dev/null && continue ;;
  esac
  dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

refuse() {
  {
    echo "install-deps.sh: these packages are missing: ${missing[*]}"
    echo "install-deps.sh: $1; run this script as root, or: apt-get install ${missing[*]}"
  } >&2
  exit 1
}

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || refuse "this user is not root and there is no sudo"
  # Without a terminal sudo cannot ask for a password, and must not wait for one.
  [ -t 0 ] || sudo -n true 2>/dev/null || refuse "sudo wants a password and there is no terminal to ask on"
  as_root=(sudo)
fi

echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=120 "$@" >"$log" 2>&1
}
install() { apt install -y --no-install-recommends "${missing[@]}"; }
# Package lists may be absent or old: only then is the slower update worth its time.
if ! install && ! { apt update && install; }; then
  cat "$log" >&2
  echo "install-deps.sh: could not install: ${missing[*]}" >&2
  exit 1
fi
