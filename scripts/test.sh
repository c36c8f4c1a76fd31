#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what is missing, builds, runs every test, and ends with the line "N passed, N failed".
#   test.sh [--asan] [--tsan] [--preset NAME] [CTEST-OPTION...]
# Each option adds a build to test, the sum is over all of them; none means the release settings. What follows goes to
# ctest: test.sh -R Netif. The status is not 0 when a test failed, a build failed, or no test ran.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

presets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --asan | --tsan) presets+=("${1#--}") ;;
    --preset)
      presets+=("${2:?"test.sh: --preset takes a name"}")
      shift
      ;;
    --help)
      sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
      exit 0
      ;;
    *) break ;;
  esac
  shift
done
[ "${#presets[@]}" -gt 0 ] || presets=(test)

passed=0
failed=0
skipped=0

# Adds up the result lines of a ctest log; whatever neither passed nor skipped itself has failed.
addResults() {
  local ok bad absent
  read -r ok bad absent < <(awk '
    /^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: / {
      if (/ Passed +[0-9.]+ sec/) ++passed; else if (/\*\*\*Skipped/) ++skipped; else ++failed
    }
    END { print passed + 0, failed + 0, skipped + 0 }' "$1")
  passed=$((passed + ok))
  failed=$((failed + bad))
  skipped=$((skipped + absent))
  ran=$((ok + bad))
}

testPreset() {
  local preset=$1 status=0 ran=0
  shift
  if ! buildPreset "$preset"; then
    failed=$((failed + 1))
    return
  fi
  local log="$kfaTop/build/$preset-tests.log"
  ctest --test-dir "$kfaTop/build/$preset" --output-on-failure --no-tests=error -j "$(nproc)" "$@" 2>&1 |
    tee "$log" || status=$?
  addResults "$log"
  # Trouble that no test line shows, such as a list of tests that could not be read.
  if [ "$ran" = 0 ] || { [ "$status" != 0 ] && [ "$failed" = 0 ]; }; then
    echo "test.sh: the tests of '$preset' could not be run" >&2
    failed=$((failed + 1))
  fi
}

if setUp test; then
  for preset in "${presets[@]}"; do
    testPreset "$preset" "$@"
  done
else
  failed=1
fi
[ "$skipped" = 0 ] || echo "$skipped skipped: what they need is not on this machine"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
