#!/usr/bin/env bash
# Installs a build, moves the tree away, and builds the plugin of README.md against it in both ways that
# README.md shows: find_package and pkg-config.
#   consumer_test.sh SOURCE_DIR BUILD_DIR WORK_DIR COMPILER
set -euo pipefail
source_dir=$1 build_dir=$2 work=$3 compiler=$4

fail() { echo "consumer_test.sh: $1" >&2; exit 1; }
extract() {
  cmake -D "DOCUMENT=$source_dir/README.md" -D "LANGUAGE=$1" -D "OUTPUT=$2" -P "$source_dir/cmake/ExtractBlock.cmake"
}
expect_report() { grep -q '"method":"v2/notifyPluginState?authorization=' || fail "$1 printed no signed report"; }

rm -rf "$work"
mkdir -p "$work/cmake" "$work/pkg-config"
cmake --install "$build_dir" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/tree"
tree=$work/tree

internal=$(find "$tree" -name '*_internal.h')
[ -z "$internal" ] || fail "internal headers are installed: $internal"
soname=$(readlink "$tree"/lib*/libPluginSDK.so || readlink "$tree"/lib*/*/libPluginSDK.so)
[[ "$soname" =~ ^libPluginSDK\.so\.[0-9]+$ ]] || fail "libPluginSDK.so leads to '$soname'"

extract cpp "$work/cmake/my_plugin.cpp"
extract cmake "$work/cmake/CMakeLists.txt"
cmake -S "$work/cmake" -B "$work/cmake/build" -G Ninja -D "CMAKE_PREFIX_PATH=$tree" \
  -D "CMAKE_CXX_COMPILER=$compiler" -D CMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
cmake --build "$work/cmake/build" >/dev/null
"$work/cmake/build/my_plugin" | expect_report "the plugin of find_package"

# The line of README.md that begins with g++, as it stands there.
line=$(grep -m1 '^g++ ' "$source_dir/README.md") || fail "README.md shows no compiler line"
cp "$work/cmake/my_plugin.cpp" "$work/pkg-config"
pc=$(find "$tree" -name PluginSDK.pc)
(cd "$work/pkg-config" && PKG_CONFIG_PATH=$(dirname "$pc") bash -c "$line")
LD_LIBRARY_PATH=$(dirname "$(dirname "$pc")") "$work/pkg-config/my_plugin" | expect_report "the plugin of pkg-config"
