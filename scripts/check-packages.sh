#!/usr/bin/env bash
# Tries the Debian packages as a user gets them: on a bare Debian each is installed through apt with what it
# depends on; the plugin of README.md is built against them and run (CMake and pkg-config, g++ and clang++,
# C++17 and C++20); the tool, its manual page and its completion are looked at; then the packages are removed,
# and nothing of them may stay.
#
#   scripts/check-packages.sh            makes the packages first
#   scripts/check-packages.sh FOLDER     takes the packages of that folder
#
# The bare Debian is made by debootstrap, in build/, and gone afterwards; downloads stay in build/ for the
# next run. That takes root (or sudo without a password) and a mirror. Without one of them the packages are
# installed on this very machine if it is one of CI (root, and CI is set), else unpacked into a folder: neither
# can tell whether they name all that they depend on. The output says which way was taken.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
exec </dev/null

[ $# -gt 0 ] || scripts/package.sh
packages=$(realpath "${1-build/packages}")
root=$PWD/build/package-root
downloads=$PWD/build/package-downloads
trial=$PWD/build/package-trial
log=$downloads/debootstrap.log

as_root=()
can_be_root=true
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo -n)
  sudo -n true 2>/dev/null || can_be_root=false
fi

remove_trial() {
  # Nothing is mounted there: mounts are made in namespaces of their own, which end with their processes.
  [ ! -e "$root" ] || "${as_root[@]}" rm -rf --one-file-system "$root"
  rm -rf "$trial"
}

make_trial() {
  local name
  mkdir -p "$trial"
  for name in libpluginsdk1 libpluginsdk-dev pluginsdk-tools; do
    cp "$packages/${name}_"*.deb "$trial/$name.deb"
  done
  cp scripts/try-packages.sh "$trial"
  cmake -D DOCUMENT=README.md -D LANGUAGE=cpp -D "OUTPUT=$trial/my_plugin.cpp" -P cmake/ExtractBlock.cmake
  cmake -D DOCUMENT=README.md -D LANGUAGE=cmake -D "OUTPUT=$trial/CMakeLists.txt" -P cmake/ExtractBlock.cmake
  version=$(dpkg-deb -f "$trial/libpluginsdk1.deb" Version)
  version=${version%-*}
}

# The release of this machine, from the mirror that it uses itself.
make_root() {
  local codename mirror
  $can_be_root || { echo "this user is not root and cannot become it"; return 1; }
  codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
  # shellcheck disable=SC2016  # apt expands these
  mirror=$(apt-get indextargets --format '$(RELEASE) $(SITE)' 'Created-By: Packages' |
    awk -v codename="$codename" '$1 == codename { site = $2 } END { print site }')
  [ -n "$mirror" ] || { echo "apt has no mirror of '$codename'"; return 1; }
  "${as_root[@]}" timeout 400 unshare --mount debootstrap --variant=minbase "--cache-dir=$downloads/base" \
    "$codename" "$root" "$mirror" >"$log" 2>&1 || { tail -n 3 "$log"; return 1; }
  # Nobody keeps this tree, so its package manager need not wait for the disk.
  echo force-unsafe-io | "${as_root[@]}" tee "$root/etc/dpkg/dpkg.cfg.d/quick" >"$log"
  "${as_root[@]}" cp -r "$trial" "$root/trial" || { echo "cannot write to $root"; return 1; }
}

try_in_root() {
  # shellcheck disable=SC2016  # expanded by the inner shell
  "${as_root[@]}" timeout 900 unshare --mount bash -euc '
    mount -t proc proc "$1/proc"
    mount --bind "$2" "$1/var/cache/apt/archives"
    exec chroot "$1" /trial/try-packages.sh apt /trial "$3"' _ "$root" "$downloads/rest" "$version"
}

trap remove_trial EXIT
remove_trial
mkdir -p "$downloads/base" "$downloads/rest/partial"
make_trial
if reason=$(make_root); then
  echo "trying the packages in a bare root made by debootstrap"
  try_in_root
elif [ "$(id -u)" -eq 0 ] && [ -n "${CI-}" ]; then
  echo "no bare root ($reason): trying the packages on this machine by dpkg, without resolving dependencies"
  timeout 600 "$trial/try-packages.sh" dpkg "$trial" "$version"
else
  echo "no bare root ($reason): trying the packages unpacked into a folder, without resolving dependencies"
  timeout 600 "$trial/try-packages.sh" unpack "$trial" "$version"
fi
echo "the packages of version $version work"
