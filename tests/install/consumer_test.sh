#!/usr/bin/env bash
# Installs a build, moves the tree away, and builds the plugin of README.md against it in both ways that
# README.md shows: find_package and pkg-config. Then the same with a static build.
#   consumer_test.sh SOURCE_DIR BUILD_DIR WORK_DIR COMPILER
set -euo pipefail
source_dir=$1 build_dir=$2 work=$3 compiler=$4

fail() { echo "consumer_test.sh: $1" >&2; exit 1; }
extract() {
  cmake -D "DOCUMENT=$source_dir/README.md" -D "LANGUAGE=$1" -D "OUTPUT=$2" -P "$source_dir/cmake/ExtractBlock.cmake"
}
# Moved into a name that wants quotes; what pkg-config prints cannot carry one, so $tree leads there.
install_and_move() {
  cmake --install "$1" --prefix "$2 installed" >/dev/null
  mv "$2 installed" "$2 moved"
  ln -s "$2 moved" "$2"
  tree=$2 pc=$(dirname "$(find "$2/" -name pluginsdk.pc)")
  library=$(dirname "$pc")
}
expect_report() { grep -q '"method":"v2/notifyPluginState?authorization=' || fail "$1 printed no signed report"; }
build_both_ways() {
  cmake -S "$work/plugin" -B "$work/build $1" -G Ninja -D "CMAKE_PREFIX_PATH=$tree moved" \
    -D "CMAKE_CXX_COMPILER=$compiler" -D CMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
  cmake --build "$work/build $1" >/dev/null
  "$work/build $1/my_plugin" | expect_report "the plugin of find_package ($1)"
  # The line of README.md that begins with g++, as it stands there.
  (cd "$work/plugin" && PKG_CONFIG_PATH=$pc bash -c "$line")
  LD_LIBRARY_PATH=$library "$work/plugin/my_plugin" | expect_report "the plugin of pkg-config ($1)"
}

rm -rf "$work"
mkdir -p "$work/plugin"
extract cpp "$work/plugin/my_plugin.cpp"
extract cmake "$work/plugin/CMakeLists.txt"
line=$(grep -m1 '^g++ ' "$source_dir/README.md") || fail "README.md shows no compiler line"

install_and_move "$build_dir" "$work/shared"
internal=$(find "$tree/" -name '*_internal.h')
[ -z "$internal" ] || fail "internal headers are installed: $internal"
version=$(PKG_CONFIG_PATH=$pc pkg-config --modversion pluginsdk)
soname=$(readlink "$library/libPluginSDK.so")
[ "$soname" = "libPluginSDK.so.${version%%.*}" ] || fail "libPluginSDK.so leads to '$soname'"
[ "$("$tree/bin/pluginsdk" --version)" = "$version" ] || fail "the tool is not of version $version"
find "$tree/share/man/man1/pluginsdk.1" "$tree/share/bash-completion/completions/pluginsdk" >/dev/null
PKG_CONFIG_PATH=$pc pkg-config --exists PluginSDK || fail "the name of version 1.0 is not found by pkg-config"
build_both_ways shared

mkdir "$work/next"
sed 's/(PluginSDK 1 /(PluginSDK 2 /' "$work/plugin/CMakeLists.txt" >"$work/next/CMakeLists.txt"
cp "$work/plugin/my_plugin.cpp" "$work/next"
! cmake -S "$work/next" -B "$work/next/build" -G Ninja -D "CMAKE_PREFIX_PATH=$tree" >"$work/next/log" 2>&1 ||
  fail "version $version passes for version 2"
grep -q "version: $version" "$work/next/log" || fail "version 2 is refused for another reason: $(<"$work/next/log")"

cmake -S "$source_dir" -B "$work/static-build" -G Ninja -D BUILD_SHARED_LIBS=OFF -D PLUGINSDK_BUILD_TESTS=OFF \
  -D PLUGINSDK_BUILD_EXAMPLES=OFF -D PLUGINSDK_BUILD_TOOLS=OFF -D "CMAKE_CXX_COMPILER=$compiler" >/dev/null
cmake --build "$work/static-build" >/dev/null
install_and_move "$work/static-build" "$work/static"
[ -z "$(find "$tree/" -name '*.so*')" ] || fail "a static build installs a shared library"
build_both_ways static

# Absolute folders are kept, whatever the prefix. CMake takes none inside the sources, where a build may be.
fixed=$(mktemp -d)
trap 'rm -rf "$fixed"' EXIT
cmake -D "CMAKE_INSTALL_LIBDIR=$fixed/lib" -D "CMAKE_INSTALL_INCLUDEDIR=$fixed/include" "$work/static-build" >/dev/null
cmake --install "$work/static-build" --prefix "$work/elsewhere" >/dev/null
printf '%s\n' '#include <PluginSDK/PluginSDK_version.h>' '#include <string>' \
  "int main() { return std::string(PluginSDK_Version()) + PLUGINSDK_VERSION_STRING == \"$version$version\" ? 0 : 1; }" \
  >"$work/version.cpp"
read -ra flags <<<"$(PKG_CONFIG_PATH=$fixed/lib/pkgconfig pkg-config --cflags --libs pluginsdk)"
"$compiler" "$work/version.cpp" -o "$work/version" "${flags[@]}"
"$work/version" || fail "header, library and pkg-config tell different versions"
