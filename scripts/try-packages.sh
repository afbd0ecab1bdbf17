#!/usr/bin/env bash
# The inner half of check-packages.sh: tries the packages where it runs. The folder holds them, beside the
# sources of a plugin; beyond that this needs nothing of the project, so that it works in a bare root.
#
#   try-packages.sh apt FOLDER VERSION      each by itself with what it depends on; then all, with compilers
#   try-packages.sh dpkg FOLDER VERSION     all, on a machine that has what they need, and off it again
#   try-packages.sh unpack FOLDER VERSION   all, unpacked into the folder
set -euo pipefail
way=$1 version=$3
cd "$2"
exec </dev/null
export LC_ALL=C DEBIAN_FRONTEND=noninteractive
packages=(libpluginsdk1 libpluginsdk-dev pluginsdk-tools)
debs=("${packages[@]/#/./}")
debs=("${debs[@]/%/.deb}")
prefix=  # before /usr, where the packages were only unpacked

fail() { echo "try-packages.sh: $1" >&2; exit 1; }

# Shows what a command printed only when it fails.
quietly() {
  timeout 600 "$@" >log 2>&1 || { cat log >&2; fail "failed: $*"; }
}
apt() { quietly apt-get -q "$1" -y --no-install-recommends "${@:2}"; }

# With a package and what it names, and nothing else, its programs find every library.
check_dependencies() {
  local file missing
  apt install "./$1.deb"
  while read -r file; do
    if [ -f "$file" ] && missing=$(ldd "$file" 2>/dev/null | grep 'not found'); then
      fail "$1 does not name what $file needs: $missing"
    fi
  done < <(dpkg -L "$1")
  [ "$1" != pluginsdk-tools ] || check_tool
  apt purge --autoremove "$1"
}

check_tool() {
  [ "$("$prefix/usr/bin/pluginsdk" --version)" = "$version" ] || fail "pluginsdk is not of version $version"
  gzip -t "$prefix/usr/share/man/man1/pluginsdk.1.gz" || fail "no manual page"
  bash -n "$prefix/usr/share/bash-completion/completions/pluginsdk" || fail "no completion"
}

expect_report() {
  "$1" | grep -q '"method":"v2/notifyPluginState?authorization=' || fail "$1 ($2) printed no signed report"
}

check_consumers() {
  local compiler standard flags
  read -ra flags <<<"$(pkg-config --cflags --libs pluginsdk)"
  for compiler in g++ clang++; do
    for standard in 17 20; do
      rm -rf build
      quietly cmake -B build -G Ninja -D "CMAKE_CXX_COMPILER=$compiler" -D "CMAKE_CXX_STANDARD=$standard"
      quietly cmake --build build
      expect_report build/my_plugin "CMake, $compiler, C++$standard"
      "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror my_plugin.cpp -o by_hand "${flags[@]}"
      expect_report ./by_hand "pkg-config, $compiler, C++$standard"
    done
  done
}

check_examples() {
  local flags
  read -ra flags <<<"$(pkg-config --cflags pluginsdk)"
  quietly g++ -std=c++17 -fsyntax-only -Wall -Wextra -Wpedantic -Werror "${flags[@]}" \
    "$prefix"/usr/share/doc/libpluginsdk-dev/examples/*.cpp
}

# The guides lead to each other, to the examples and to the changelog, also where they are installed.
check_links() {
  local document link links
  mapfile -t links < <(grep -roE --include='*.md' '\]\([^)#: ]+[)#]' "$prefix/usr/share/doc/libpluginsdk-dev")
  [ ${#links[@]} -gt 0 ] || fail "the installed documents link to nothing"
  for link in "${links[@]}"; do
    document=${link%%:*}
    link=${link#*:](}
    link=${link%[)#]}
    [ -e "$(dirname "$document")/$link" ] || fail "$document links to $link, which is not installed"
  done
}

check_removal() {
  local path
  dpkg -L "${packages[@]}" | sort -u | grep -vxF -e '' -e /. >installed
  quietly dpkg -P "${packages[@]}"
  while read -r path; do
    if [ -e "$path" ] || [ -L "$path" ]; then
      dpkg -S "$path" >/dev/null 2>&1 || fail "$path stays when the packages are gone"
    fi
  done <installed
}

case "$way" in
  apt)
    quietly apt-get -q update
    check_dependencies pluginsdk-tools
    check_dependencies libpluginsdk1
    apt install "${debs[@]}" g++ clang cmake ninja-build
    ;;
  dpkg)
    ! dpkg-query -W "${packages[@]}" >/dev/null 2>&1 || fail "some of ${packages[*]} are installed already"
    trap 'dpkg -P "${packages[@]}" >/dev/null 2>&1' EXIT
    quietly dpkg -i "${debs[@]}"
    ;;
  unpack)
    prefix=$PWD/tree
    for package in "${packages[@]}"; do
      dpkg -x "$package.deb" "$prefix"
    done
    libraries=$(dirname "$(find "$prefix/usr/lib" -name 'libPluginSDK.so')")
    export CMAKE_PREFIX_PATH=$prefix/usr PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
    ;;
  *) fail "unknown way '$way'" ;;
esac
check_tool
check_consumers
check_examples
check_links
[ "$way" = unpack ] || check_removal
