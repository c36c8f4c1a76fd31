#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Kills processes that use a file of ours at random moments, and prints what that cost:
#   faults.sh cache [COUNT] [SEED]
# COUNT (100000) is the number of kills, and of seeds of damage to a file that is open; SEED (1) where the seeds begin. The
# kills are made with the release settings, the damage with the address and undefined behaviour sanitizers. Every failing
# seed is printed with its steps; the status is then 1.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

if [ "${1:-}" != cache ]; then
  sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}" >&2
  exit 2
fi
count=${2:-100000}
seed=${3:-1}
jobs=$(nproc)
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

setUp test
buildPreset test KFLCacheLivesTest kfactl
buildPreset asan KFLCacheLivesTest

# run PRESET NAME FILTER: shares the count out among the processors, each with seeds of its own.
status=0
run() {
  local job pids=()
  for ((job = 0; job < jobs; ++job)); do
    KFA_CACHE_KILLS=$((count / jobs + 1)) KFA_CACHE_DAMAGES=$((count / jobs + 1)) KFA_CACHE_FAULTS=20 \
      KFA_CACHE_SEED=$((seed + job * 10000000)) \
      "$kfaTop/build/$1/bin/KFLCacheLivesTest" --gtest_filter="$3" >"$logs/$2.$job" 2>&1 &
    pids+=($!)
  done
  for job in "${pids[@]}"; do
    wait "$job" || status=1
  done
  grep -hA 60 ': Failure' "$logs/$2".* || true
}

run test kills '*NothingIsLost*'
run asan damages '*DamageWhileOpen*'
jobs=1
run test tools 'CacheTools.*:*SpaceOfTheDead*'

# The figures of all jobs: "name value" pairs; longest, largest and slowest are the greatest, the others sums.
cat "$logs"/* | awk '
  /^(tries|damages) [0-9]/ {
    for (i = 1; i < NF; i += 2) {
      if (!($i in value)) names[++n] = $i
      if ($i ~ /^(longest|largest|slowest)/) value[$i] = $(i + 1) > value[$i] ? $(i + 1) : value[$i]
      else value[$i] += $(i + 1)
    }
  }
  END { for (i = 1; i <= n; ++i) printf "%-20s %d\n", names[i], value[names[i]] }'
exit "$status"
