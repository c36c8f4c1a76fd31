#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds with counters and prints which lines and branches of core/ and kfa/ run, by folder, and the files with the most
# lines that nothing ran:
#   coverage.sh [--lines] [NAME...] [-- CTEST-OPTION...]
# NAME is tests (all of them but the next), seeds (the fuzz targets over their seeds and inputs near them), or one test
# program or fuzz target, such as KFLBashTest or CacheFuzz; none means tests and seeds, each by itself and both. --lines
# prints every line that nothing ran. What follows "--" goes to ctest: coverage.sh tests -- -R Netif.
# Tests and seeds together are held against coverage-unreached.txt, which says why some lines are not reached: what is
# neither reached nor listed there is printed, and so is what is listed and reached.
# The profiles stay in build/coverage as NAME.profdata. The status is not 0 when a test failed.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"
folder="$kfaTop/build/coverage"

everyLine=""
names=()
while [ $# -gt 0 ]; do
  name=$1
  shift
  case "$name" in
    --) break ;;
    --help)
      sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
      exit 0
      ;;
    --lines) everyLine=yes ;;
    -*)
      echo "coverage.sh: unknown option '$name'; see coverage.sh --help" >&2
      exit 2
      ;;
    *) names+=("$name") ;;
  esac
done
options=("$@")
[ "${#names[@]}" -gt 0 ] || names=(tests seeds)

# The numbers of the tests that NAME means, with commas between.
testsOf() {
  ctest --test-dir "$folder" --show-only=json-v1 | jq -r --arg name "$1" '
    def means($seeds; $program):
      if $name == "tests" then $seeds | not elif $name == "seeds" then $seeds else $program | endswith("/" + $name) end;
    .tests | to_entries | map(select(.value | means(.name | endswith(".Seeds"); (.command // [""])[0])) | .key + 1)
    | join(",")'
}

# Every process of a program counts in the same file, so what one that was killed ran counts as well.
runTests() {
  local numbers
  numbers=$(testsOf "$1")
  if [ -z "$numbers" ]; then
    echo "coverage.sh: no tests in '$1'" >&2
    exit 2
  fi
  rm -rf "$folder/profiles"
  ctest --test-dir "$folder" --output-on-failure -j "$(nproc)" -I "0,0,0,$numbers" "${options[@]}" \
    >"$folder/$1.log" 2>&1 || {
    status=1
    grep -E '^[0-9]+% tests passed|^\s+[0-9]+ - ' "$folder/$1.log" >&2 || tail -n 20 "$folder/$1.log" >&2
  }
  find "$folder/profiles" -name '*.profraw' -print0 |
    xargs -0 llvm-profdata-14 merge -o "$folder/$1.profdata"
}

# FILE LINES RUN BRANCHES TAKEN of each file, and FILE:LINE of each line that nothing ran in NAME.lines. Only what was built
# with counters is asked.
countLines() {
  local -a objects
  mapfile -t objects < <(find "$folder" -type f -perm -u+x -exec grep -lF __llvm_profile_runtime {} + | sed 's/^/-object=/')
  llvm-cov-14 export -format=lcov "${objects[@]}" -instr-profile "$folder/$1.profdata" -compilation-dir "$kfaTop" \
    -ignore-filename-regex '/tests/|/(build|examples|fuzz)/' 2>"$folder/$1-cov.log" | tee "$folder/$1.lcov" |
    awk -F '[:,]' -v top="$kfaTop/" -v missing="$folder/$1.lines" '
      $1 == "SF" { file = substr($2, length(top) + 1); lines = ran = ways = taken = 0 }
      $1 == "DA" { ++lines; if ($3 > 0) ++ran; else print file ":" $2 >missing }
      $1 == "BRF" { ways = $2 }
      $1 == "BRH" { taken = $2 }
      $1 == "end_of_record" { print file, lines, ran, ways, taken }' | sort
}

# The sums by folder of what countLines says.
printSums() {
  awk '
    function percent(part, whole) { return whole ? sprintf("%.2f %%", 100 * part / whole) : "-" }
    function show(name) {
      printf "%-44s %7d %9s %9d %9s\n", name, lines[name], percent(ran[name], lines[name]), ways[name],
             percent(taken[name], ways[name])
    }
    function add(name) { lines[name] += $2; ran[name] += $3; ways[name] += $4; taken[name] += $5 }
    BEGIN { printf "%-44s %7s %9s %9s %9s\n", "", "lines", "run", "branches", "taken" }
    {
      sub("/[^/]*$", "", $1)
      if (!($1 in lines)) order[++count] = $1
      add($1); add("all")
    }
    END { for (i = 1; i <= count; ++i) show(order[i]); show("all") }'
}

# Each line that nothing ran with its text, or so many files with the most of them.
printMissing() {
  if [ -n "$everyLine" ]; then
    sort -t : -k 1,1 -k 2,2n "$folder/$1.lines" | while IFS=: read -r file number; do
      printf '%s:%s: %s\n' "$file" "$number" "$(sed -n "${number}p" "$kfaTop/$file")"
    done
  else
    cut -d : -f 1 "$folder/$1.lines" | uniq -c | sort -rn | head -n 30
  fi
}

# The lines that nothing ran, sorted: those of functions of which no program has any code, since they run while it is
# compiled; those for which coverage-unreached.txt gives a reason; and the others. A reason holds for the rest of its
# stretch: for the lines around it that nothing ran, in the same function. It is found by the text of one of them, or of the
# line before them, such as the condition that was never met.
sortMissing() {
  llvm-profdata-14 show --all-functions "$folder/$1.profdata" | sed -n 's/^  \(.*:\)\?\([^ :]*\):$/\2/p' |
    awk -F '[:,]' -v top="$kfaTop/" '
      function percent(part, whole) { return whole ? sprintf("%.2f %%", 100 * part / whole) : "-" }
      function textOf(number) { return number in text ? text[number] : "" }
      # Whether the function whose body begins there says that it can run while the program is compiled.
      function isConstant(number) {
        for (; number > 0; --number) {
          if (textOf(number) ~ /(^|[^A-Za-z_])const(expr|eval)[^A-Za-z_]/) return 1
          if (textOf(number - 1) ~ /([;{}:]|^)[ \t]*(\/\/.*)?$/) return 0
        }
        return 0
      }
      function endStretch(  i, j, stretch, reason) {
        if (first == count) return
        stretch = textOf(line[first] - 1)
        for (i = first; i < count; ++i) stretch = stretch "\n" textOf(line[i])
        for (j = 1; j <= entries; ++j)
          if (entryFile[j] == file && index(stretch, entryText[j])) { used[j] = 1; reason = entryReason[j] }
        for (i = first; i < count; ++i) {
          if (isCompiled) ++compiled
          else if (reason != "") ++listed[reason]
          else { ++unknown; print file ":" line[i] ": " textOf(line[i]) }
        }
        first = count
      }
      FILENAME == "-" { hasCode[$0] = 1; next }
      FILENAME ~ /[.]txt$/ {
        if ($0 ~ /^== /) { reason = substr($0, 4); reasons[++reasonCount] = reason }
        else if ($0 !~ /^(#|$)/) {
          ++entries
          entryFile[entries] = substr($0, 1, index($0, ": ") - 1)
          entryText[entries] = substr($0, index($0, ": ") + 2)
          entryReason[entries] = reason
        }
        next
      }
      $1 == "SF" {
        file = substr($2, length(top) + 1)
        split("", text); split("", begins); split("", isReal)
        for (number = 1; (getline row <$2) > 0; ++number) text[number] = row
        close($2)
        first = count = isCompiled = 0
      }
      $1 == "FN" { begins[$2] = 1; if ($NF in hasCode) isReal[$2] = 1 }
      $1 == "DA" {
        ++lines
        if ($3 > 0 || $2 in begins) endStretch()
        if ($2 in begins) isCompiled = !($2 in isReal) && isConstant($2)
        if ($3 > 0) ++ran
        else line[count++] = $2
      }
      $1 == "end_of_record" { endStretch() }
      END {
        printf "%d lines are neither reached nor listed\n", unknown
        for (i = 1; i <= reasonCount; ++i) printf "%7d %s\n", listed[reasons[i]], reasons[i]
        printf "%7d %s\n", compiled, "of functions that run while the program is compiled"
        for (i = 1; i <= entries; ++i)
          if (!(i in used)) print "listed, and reached or gone: " entryFile[i] ": " entryText[i]
        printf "of the %d lines that can run, %s ran\n", lines - compiled, percent(ran, lines - compiled)
      }' - "$here/coverage-unreached.txt" "$folder/$1.lcov"
}

setUp coverage
targets=()
for name in "${names[@]}"; do
  case "$name" in
    tests | seeds) targets+=(all) ;;
    *) targets+=("$name") ;;
  esac
done
buildPreset coverage "${targets[@]}"

# What the profile NAME.profdata tells.
report() {
  : >"$folder/$1.lines"
  echo "what '$1' reach"
  countLines "$1" | printSums
  echo "lines that nothing of it ran"
  printMissing "$1"
}

status=0
for name in "${names[@]}"; do
  runTests "$name"
  report "$name"
done
if [ "${#names[@]}" -gt 1 ]; then
  (cd "$folder" && llvm-profdata-14 merge "${names[@]/%/.profdata}" -o all.profdata)
  report all
  [ "${names[*]}" != "tests seeds" ] || sortMissing all
fi
exit "$status"
