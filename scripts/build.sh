#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Configures and builds a preset of CMakePresets.json in build/PRESET: build.sh PRESET [TARGET...]
# One line of progress on standard error while there is something to build; the log is build/PRESET.log.
set -euo pipefail

kfaTop=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Turns ninja's "[12/345] ..." lines into one line of tenths.
showTenths() {
  awk -v name="$1" '
    match($0, /^\[[0-9]+\/[0-9]+\]/) {
      split(substr($0, 2, RLENGTH - 2), step, "/")
      if (step[2] < 2) next
      if (!begun++) printf "building %s:", name
      for (tenth = int(10 * step[1] / step[2]); shown < tenth;) printf " %d%%", 10 * ++shown
      fflush()
    }
    END { if (begun) print "" }' >&2
}

failBuild() {
  echo "build of '$1' failed; the end of $2:" >&2
  tail -n 40 "$2" >&2
  return 1
}

# A folder that was configured for another place cannot be built in.
dropForeignFolder() {
  local cache="$1/CMakeCache.txt"
  if [ -e "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$kfaTop" "$cache"; then
    rm -rf "$1"
  fi
}

buildPreset() {
  local preset=$1 folder="$kfaTop/build/$1" log="$kfaTop/build/$1.log"
  shift
  mkdir -p "$kfaTop/build"
  (
    flock 9
    dropForeignFolder "$folder"
    if [ ! -e "$folder/build.ninja" ]; then
      (cd "$kfaTop" && cmake --preset "$preset") >"$log" 2>&1 9>&- || failBuild "$preset" "$log" || exit 1
    fi
    local targets=(all)
    [ $# -eq 0 ] || targets=("$@")
    cmake --build "$folder" --target "${targets[@]}" 2>&1 9>&- | tee "$log" | showTenths "$preset" ||
      failBuild "$preset" "$log"
  ) 9>"$kfaTop/build/.lock-$preset"
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
  if [ $# -eq 0 ]; then
    echo "usage: build.sh PRESET [TARGET...]; presets: cmake --list-presets" >&2
    exit 2
  fi
  buildPreset "$@"
fi
