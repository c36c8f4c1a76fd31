#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The long form of the tests of failures, which prints how much was tried: faults.sh [SECTION [COUNT]]
#   save [COUNT]  each system call of a save fails, ends the process, or is met by a fork, another program, a full disk;
#                 the same with a tracer around kfactl; COUNT (20000) of 64 writers are killed
#   cache [COUNT [SEED]]
#                 each system call of a cache's use fails; COUNT (100000) processes that use a cache file are killed, at
#                 any store and call, and so many seeds damage a file that is open, these under the address and undefined
#                 behaviour sanitizers; SEED (1) is the first
# Without a SECTION: all. The status is 1 when anything was lost.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

sections=(save cache)

# runTests PROGRAM FILTER: the counts that the tests print, and what failed.
runTests() {
  local log="$kfaTop/build/faults.log"
  "$kfaTop/build/test/bin/$1" --gtest_filter="$2" >"$log" 2>&1 || {
    grep -v -E '^\[ (RUN|      OK)' "$log" | tail -n 60
    return 1
  }
  grep -E '^([a-z ]+: )?[0-9]+ [a-z_]' "$log"
  sed -n 's/^\[  SKIPPED \] \(.*\) (.*/skipped: \1/p' "$log" | sort -u
}

# The system calls that a save makes on files.
traced=openat,readlink,statfs,newfstatat,fstat,lseek,read,pread64,write,flock,flistxattr,fgetxattr,fsetxattr
traced+=,fchown,fchmod,fsync,link,unlink,rename,renameat2,close

# A file in $folder for one save by kfactl, as it is before it.
prepareTraced() {
  rm -rf "$folder/traced"
  mkdir "$folder/traced"
  printf 'A=1\n# kept\n' >"$folder/traced/a"
}

# underTracer INJECTION: sets A to 2 in that file while strace makes calls fail. The status is kfactl's.
underTracer() {
  strace -f -qq -o /dev/null -P "$folder/traced" -P "$folder/traced/a" -P "$folder/traced/.a.kfa-new" \
    -e trace="$traced" -e inject="$1" \
    "$kfaTop/build/test/bin/kfactl" raw set "$folder/traced/a" A=2 2>"$folder/error"
}

# Whether the file is the old one or the new one, and the same save then works and leaves nothing else.
isWholeAfterTracer() {
  local content
  content=$(cat "$folder/traced/a")
  [ "$content" = $'A=1\n# kept' ] || [ "$content" = $'A="2"\n# kept' ] || return 1
  "$kfaTop/build/test/bin/kfactl" raw set "$folder/traced/a" A=2 || return 1
  [ "$(cat "$folder/traced/a")" = $'A="2"\n# kept' ] && [ "$(ls -A "$folder/traced")" = a ]
}

# Each call of each kind in turn fails, or is followed by the process's death.
traceSaves() {
  local call number fault points=0 lost=0 status
  prepareTraced
  underTracer "fsync:error=EIO:when=1" || true
  if ! grep -q "^kfactl: $folder/traced/a: .*Input/output error" "$folder/error"; then
    echo "skipped: no process can be traced here"
    return 0
  fi
  for call in ${traced//,/ }; do
    for fault in error=EIO error=ENOSPC error=EINTR error=EMFILE signal=KILL; do
      for number in 1 2 3 4 5 6; do
        prepareTraced
        status=0
        underTracer "$call:$fault:when=$number" 2>/dev/null || status=$?
        points=$((points + 1))
        if ! isWholeAfterTracer || { [ "$status" = 2 ] && ! grep -q "^kfactl: $folder/traced/a: " "$folder/error"; }; then
          echo "lost: $call $fault $number: status $status, $(cat "$folder/error")" >&2
          lost=$((lost + 1))
        fi
        # Fewer calls of this kind are made than that.
        [ "$status" != 0 ] || [ "$fault" = error=EINTR ] || [ "$call" = close ] || break
      done
    done
  done
  echo "traced: $points points, $lost lost"
  [ "$lost" = 0 ]
}

faultsOfSave() {
  local count=${1:-20000} status=0
  folder=$(mktemp -d)
  trap 'rm -rf "$folder"' EXIT
  runTests KFAFunctionalityTest '*SaveFaults*:SaveAmongOthers*:FolderFaults*' || status=1
  traceSaves || status=1
  KFA_FAULTS_COUNT=$count runTests KFAFunctionalityTest 'SaveKills*' || status=1
  return "$status"
}

# runCache PRESET NAME FILTER: shares the count out among the processors, each with seeds of its own.
runCache() {
  local job pids=() status=0
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
  return "$status"
}

# The figures of all jobs: "name value" pairs; longest, largest and slowest are the greatest, the others sums.
sumOfJobs() {
  cat "$logs"/* | awk '
    /^(tries|damages) [0-9]/ {
      for (i = 1; i < NF; i += 2) {
        if (!($i in value)) names[++n] = $i
        if ($i ~ /^(longest|largest|slowest)/) value[$i] = $(i + 1) > value[$i] ? $(i + 1) : value[$i]
        else value[$i] += $(i + 1)
      }
    }
    END { for (i = 1; i <= n; ++i) printf "cache: %d %s\n", value[names[i]], names[i] }'
}

faultsOfCache() {
  local count=${1:-100000} seed=${2:-1} jobs logs status=0
  buildPreset test KFLCacheLivesTest KFLCoreTest
  buildPreset asan KFLCacheLivesTest
  logs=$(mktemp -d)
  jobs=$(nproc)
  runTests KFLCoreTest '*CacheSystem*' || status=1
  runCache test kills '*NothingIsLost*' || status=1
  runCache asan damages '*DamageWhileOpen*' || status=1
  jobs=1
  runCache test tools 'CacheTools.*:*SpaceOfTheDead*' || status=1
  sumOfJobs
  rm -rf "$logs"
  return "$status"
}

case "${1:-}" in
  --help)
    sed -n '3,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
    exit 0
    ;;
esac
setUp test faults
# Saves wait for the disk, and what is tried here does not need one.
[ -n "${TMPDIR:-}" ] || [ ! -w /dev/shm ] || export TMPDIR=/dev/shm
buildPreset test KFAFunctionalityTest kfactl
status=0
if [ $# -eq 0 ]; then
  for section in "${sections[@]}"; do
    "faultsOf${section^}" || status=1
  done
elif [[ " ${sections[*]} " == *" $1 "* ]]; then
  section=$1
  shift
  "faultsOf${section^}" "$@" || status=1
else
  echo "faults.sh: unknown section '$1'; one of ${sections[*]}" >&2
  exit 2
fi
exit "$status"
