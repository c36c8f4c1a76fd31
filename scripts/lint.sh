#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks layout (clang-format) and code (clang-tidy), warnings being errors: lint.sh [FILE...]
# Without files: every source and header of the project.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"

setUp lint
cd "$kfaTop"
files=("$@")
if [ $# -eq 0 ]; then
  mapfile -t files < <(find core kfa bench fuzz examples -name '*.h' -o -name '*.cpp' | sort)
fi
status=0
clang-format-14 --dry-run -Werror "${files[@]}" || status=1

# clang's own compile commands: clang-tidy refuses options that only gcc knows.
mkdir -p build
dropForeignFolder build/lint
{ cmake --preset lint && cmake --build build/lint --target kf_made; } >build/lint.log 2>&1 ||
  failBuild lint build/lint.log
# A source is checked with the headers beside it; only what the build compiles has a command to check it with.
mapfile -t sources < <(for file in "${files[@]}"; do
  [[ $file != *.cpp ]] || ! grep -qF "/$file\"" build/lint/compile_commands.json || echo "$file"
done)
if [ "${#sources[@]}" -gt 0 ]; then
  printf '%s\0' "${sources[@]}" |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 --quiet -p build/lint 2>/dev/null || status=1
fi
[ "$status" != 0 ] || echo "lint: ${#files[@]} files are clean"
exit "$status"
