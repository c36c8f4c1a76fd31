#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the fuzz targets with libFuzzer and the address and undefined behaviour sanitizers, and runs each in turn:
#   fuzz.sh [SECONDS] [TARGET...]
# SECONDS (60) is the time of each target; no TARGET means all. Inputs found stay in build/fuzz/corpus/TARGET, a failing
# one in build/fuzz/findings, and the status is then 1.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

seconds=60
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
setUp fuzz
buildPreset fuzz

# The targets as they are listed: kf_fuzz(NAME SOURCE SEEDS ...), with ";" between several folders of seeds.
declare -A seedsOf
while read -r name seeds; do
  seedsOf[$name]=$seeds
done < <(sed -n 's/^ *kf_fuzz(\([A-Za-z]\+\) [^ ]\+ "\?\([^ ")]\+\).*/\1 \2/p' "$kfaTop/fuzz/CMakeLists.txt")

folder="$kfaTop/build/fuzz"
mkdir -p "$folder/findings"
targets=("$@")
[ $# -gt 0 ] || targets=("${!seedsOf[@]}")

status=0
for target in "${targets[@]}"; do
  if [ -z "${seedsOf[$target]:-}" ]; then
    echo "fuzz.sh: unknown target '$target'; one of ${!seedsOf[*]}" >&2
    exit 2
  fi
  mkdir -p "$folder/corpus/$target"
  echo "$target: $seconds seconds"
  IFS=';' read -ra seeds <<<"${seedsOf[$target]}"
  options=()
  dictionary="$kfaTop/fuzz/dictionaries/${seeds[0]}.dict"
  [ ! -f "$dictionary" ] || options+=("-dict=$dictionary")
  "$folder/bin/$target" "${options[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$folder/findings/$target-" "$folder/corpus/$target" "${seeds[@]/#/$kfaTop/fuzz/seeds/}" \
    >"$folder/$target.log" 2>&1 || {
    status=1
    tail -n 40 "$folder/$target.log"
  }
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec)' "$folder/$target.log" || true
done
exit "$status"
