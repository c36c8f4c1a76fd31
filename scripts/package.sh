#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the Debian packages in build/packages:
#   package.sh               builds them and lets lintian look at them
#   package.sh --reproduce   builds them twice, in two folders, as another user with other settings, and compares them byte by byte
#   package.sh --test        builds them, installs them into an empty Debian 12 root, and uses them there (needs root)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
kfaTop=$(cd "$here/.." && pwd)
out="$kfaTop/build/packages"

# What git knows, as it stands in the work tree, without anything that a build left behind.
copySource() {
  mkdir -p "$1"
  (cd "$kfaTop" && git ls-files -z --cached --others --exclude-standard | tar --null -T - -c --ignore-failed-read 2>/dev/null) |
    tar -x -C "$1"
}

# build FOLDER OUT [COMMAND...]: the packages of a copy of the source in FOLDER, built by a command that runs another.
build() {
  local folder=$1 to=$2 log="$kfaTop/build/packages.log" as=("${@:3}")
  rm -rf "$folder" "$to"
  (umask 022 && mkdir -p "$folder")
  mkdir -p "$to"
  copySource "$folder/kfa"
  [ "${#as[@]}" = 0 ] || chown -R nobody "$folder"
  (cd "$folder/kfa" && "${as[@]}" dpkg-buildpackage -b -us -uc) >"$log" 2>&1 || {
    tail -n 40 "$log" >&2
    echo "package.sh: the packages could not be built; the whole log is build/packages.log" >&2
    return 1
  }
  cp "$folder"/*.deb "$folder"/*.changes "$folder"/*.buildinfo "$to"
  rm -rf "$folder"
}

lint() {
  local found
  found=$(lintian --pedantic --allow-root --tag-display-limit 0 "$out"/*.changes) || true
  [ -z "$found" ] && return
  printf '%s\n' "$found" >&2
  return 1
}

reproduce() {
  local other="$kfaTop/build/packages-again" package status=0 as=()
  [ "$(id -u)" != 0 ] || as=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
  (umask 027 && LC_ALL=C.UTF-8 TZ=Pacific/Auckland HOME=/nonexistent \
    build "$kfaTop/build/another-folder/below" "$other" "${as[@]}")
  for package in "$out"/*.deb; do
    cmp "$package" "$other/$(basename "$package")" || {
      status=1
      ! command -v diffoscope >/dev/null || diffoscope "$package" "$other/$(basename "$package")" >&2 || true
    }
  done
  [ "$status" != 0 ] || echo "the same from two folders: $(cd "$out" && ls ./*.deb | wc -l) packages"
  return "$status"
}

# An empty Debian 12 with nothing but the packages and what they need; $1 is its folder.
makeRoot() {
  [ "$(id -u)" = 0 ] || {
    echo "package.sh: --test needs root's rights, for a root of its own" >&2
    return 1
  }
  local mirror
  mirror=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null |
    sed -n 's/^deb  *\(\[[^]]*\] \)\{0,1\}\([^ ]*\) bookworm .*/\2/p; s/^URIs: *\([^ ]*\).*/\1/p' | head -n 1) || true
  debootstrap --variant=minbase bookworm "$1" ${mirror:+"$mirror"} \
    >"$kfaTop/build/debootstrap.log" 2>&1 || {
    tail -n 5 "$kfaTop/build/debootstrap.log" >&2
    return 1
  }
  mkdir -p "$1/packages"
  find "$out" -name "*.deb" ! -name "*-dbgsym_*" -exec cp {} "$1/packages" \;
}

testInstalled() {
  local root
  root=$(mktemp -d)
  # shellcheck disable=SC2064 # the folder's name now
  trap "umount '$root/proc' 2>/dev/null || true; rm -rf --one-file-system '$root'" EXIT
  makeRoot "$root"
  mount -t proc proc "$root/proc"
  cp -r "$kfaTop/debian/tests" "$root/tests"
  chroot "$root" env DEBIAN_FRONTEND=noninteractive sh -ec '
    apt-get update -q
    apt-get install -q -y --no-install-recommends /packages/*.deb' >"$kfaTop/build/install.log" 2>&1 || {
    tail -n 30 "$kfaTop/build/install.log" >&2
    return 1
  }
  local name needs status=0
  while read -r name needs; do
    if chroot "$root" env DEBIAN_FRONTEND=noninteractive AUTOPKGTEST_TMP="$(chroot "$root" mktemp -d)" sh -ec "
        [ -z '$needs' ] || apt-get install -q -y --no-install-recommends $needs
        sh -e /tests/$name" >"$kfaTop/build/package-$name.log" 2>&1; then
      echo "package test $name: passed"
    else
      status=1
      tail -n 30 "$kfaTop/build/package-$name.log" >&2
      echo "package test $name: failed"
    fi
  done < <(awk '/^Tests:/ {name = $2} /^Depends:/ {
    sub(/^Depends: */, ""); gsub(/,/, " "); gsub(/(kfactl(-at)?|kfad|libkfa[0-9a-z-]*|kfa-[a-z]*|python3-kfa)( |$)/, ""); print name, $0}' \
    "$kfaTop/debian/tests/control")
  return "$status"
}

setUp package
mkdir -p "$kfaTop/build"
status=0
build "$kfaTop/build/package-source" "$out"
lint || status=1
case "${1:-}" in
  --reproduce) reproduce || status=1 ;;
  --test) testInstalled || status=1 ;;
esac
(cd "$out" && ls -1 ./*.deb)
exit "$status"
