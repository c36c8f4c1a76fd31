#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the benchmarks, and prints how our times stand to those of the peers in the same run:
#   bench.sh [--quick] [PROGRAM...]
# No PROGRAM means all. A benchmark "QuestionOurs/SIZE" is set against every "QuestionPeer/SIZE". Times are medians of five
# runs in mixed order, or one run each with --quick; the raw figures stay in build/bench/PROGRAM.json.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

repetitions=5
if [ "${1:-}" = --quick ]; then
  repetitions=1
  shift
fi
setUp bench
buildPreset bench
bin="$kfaTop/build/bench/bin"
programs=("$@")
if [ $# -eq 0 ]; then
  mapfile -t programs < <(cd "$bin" && printf '%s\n' *Bench)
fi

# The rows of the table, from Google Benchmark's JSON: question, size, our time, peer, its time, ratio; then the counters.
rows() {
  jq -r '
    def nanoseconds: {ns: 1, us: 1e3, ms: 1e6, s: 1e9}[.time_unit] * .real_time;
    def known: ["name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
                "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit", "aggregate_name",
                "aggregate_unit", "bytes_per_second", "items_per_second", "label"];
    [.benchmarks[] | select(.run_type == "iteration" or .aggregate_name == "median")
     | (.run_name | split("/")) as $path
     | {base: $path[0], size: ($path[1] // "-"), shown: ($path[0] + (if $path[2] then "/" + $path[2] else "" end)),
        time: nanoseconds, failed: .error_occurred,
        counters: (to_entries | map(select((.value | type) == "number" and (.key | IN(known[]) | not))))}] as $all
    | ($all[] | select(.failed) | [.base, .size, "failed"]),
      ([$all[] | select(.base | contains("Ours"))] | sort_by(.base, (.size | tonumber? // 0)) | .[] | . as $ours | (.base | split("Ours")[0]) as $question
       | [$all[] | select((.base | startswith($question)) and (.base | contains("Ours") | not) and .size == $ours.size)]
       | if length == 0 then [$question, $ours.size, $ours.time]
         else .[] | [$question, $ours.size, $ours.time, (.shown | ltrimstr($question)), .time, $ours.time / .time] end),
      ($all[] | select(.counters | length > 0)
       | [.shown, .size, "counters", (.counters | map("\(.key)=\(.value * 1000 | round / 1000)") | join(" "))])
    | @tsv' "$1"
}

table() {
  awk -F '\t' '
    function text(ns) {
      if (ns < 1e3) return sprintf("%.1f ns", ns)
      if (ns < 1e6) return sprintf("%.2f us", ns / 1e3)
      if (ns < 1e9) return sprintf("%.2f ms", ns / 1e6)
      return sprintf("%.2f s", ns / 1e9)
    }
    BEGIN { printf "%-22s %10s %12s   %-26s %12s %8s\n", "question", "size", "ours", "peer", "its time", "ratio" }
    $3 == "counters" { printf "%-22s %10s   %s\n", $1, $2, $4; next }
    $3 == "failed" { printf "%-22s %10s   FAILED\n", $1, $2; next }
    NF == 3 { printf "%-22s %10s %12s\n", $1, $2, text($3); next }
    { printf "%-22s %10s %12s   %-26s %12s %8.2f\n", $1, $2, text($3), $4, text($5), $6 }'
}

for program in "${programs[@]}"; do
  json="$kfaTop/build/bench/$program.json"
  "$bin/$program" --benchmark_out="$json" --benchmark_out_format=json --benchmark_repetitions="$repetitions" \
    --benchmark_enable_random_interleaving=true >"$kfaTop/build/bench/$program.log" 2>&1 || {
    tail -n 20 "$kfaTop/build/bench/$program.log" >&2
    exit 1
  }
  printf '\n%s\n' "$program"
  rows "$json" | table
done
