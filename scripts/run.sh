#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what is missing, builds, and runs kfactl with the arguments given.
# Without arguments it shows the main job on a copy of the example node.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

setUp build
buildPreset release kfactl
kfactl="$kfaTop/build/release/bin/kfactl"

if [ $# -gt 0 ]; then
  exec "$kfactl" "$@"
fi

# show [--status N] ARGUMENT...: prints the command, then runs it; a finding (status 1) may be expected.
show() {
  local expected=0 status=0
  if [ "$1" = --status ]; then
    expected=$2
    shift 2
  fi
  printf '\n$ kfactl %s\n' "$*"
  "$kfactl" "$@" || status=$?
  [ "$status" = "$expected" ] || {
    echo "run.sh: status $status instead of $expected" >&2
    exit 1
  }
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp -r "$kfaTop/examples/node/." "$folder"
cd "$folder"
echo "A copy of examples/node:"
show config list conf
show config show conf/101.conf
cp conf/101.conf before.conf
show config set conf/101.conf ONBOOT=no HOSTNAME=web1.example.com
show --status 1 config diff before.conf conf/101.conf
printf '\n$ diff before.conf conf/101.conf\n'
diff before.conf conf/101.conf || true
printf '\n$ kfactl message from-config conf/101.conf > 101.xml; cat 101.xml\n'
"$kfactl" message from-config conf/101.conf > 101.xml
cat 101.xml
show message to-config 101.xml
printf '\n$ kfactl message to-config 101.xml > back.conf\n'
"$kfactl" message to-config 101.xml > back.conf
show config diff conf/101.conf back.conf
echo "(no difference)"
