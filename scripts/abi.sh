#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Compares what the libraries export with what the last release exported, and says what a difference means for the soname:
#   abi.sh               the symbols of build/release against packaging/abi/LIBRARY.symbols; status 1 when one is gone
#   abi.sh --update      writes these files anew, which a release does
#   abi.sh --undeclared  lists the exported symbols with a name that no installed header has; nobody should use them
#   abi.sh --types REV   builds the revision and the work tree with debug information and compares their types, too
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source-path=SCRIPTDIR source=setup.sh
source "$here/setup.sh"
# shellcheck source-path=SCRIPTDIR source=build.sh
source "$here/build.sh"
stored="$kfaTop/packaging/abi"

libraries() {
  find "$1" -name 'libK*.so' | sort
}

symbolsOf() {
  nm -D --defined-only "$1" | awk '{print $NF}' | sed 's/@.*//' | LC_ALL=C sort -u
}

compareSymbols() {
  local library name gone more status=0
  [ -d "$stored" ] || {
    echo "abi.sh: packaging/abi has no symbols of a release; --update writes them" >&2
    return 2
  }
  while read -r library; do
    name=$(basename "$library" .so)
    gone=$(LC_ALL=C comm -23 "$stored/$name.symbols" <(symbolsOf "$library") | c++filt)
    more=$(LC_ALL=C comm -13 "$stored/$name.symbols" <(symbolsOf "$library") | wc -l)
    if [ -n "$gone" ]; then
      status=1
      printf '%s: gone, so programs linked to the last release may not start; the soname must change:\n%s\n' "$name" \
        "$(sed 's/^/  /' <<<"$gone")"
    fi
    [ "$more" = 0 ] || echo "$name: $more symbols are new, which programs do not notice; the soname stays"
  done < <(libraries "$kfaTop/build/release")
  [ "$status" != 0 ] || echo "every exported symbol of the last release is still there"
  return "$status"
}

updateSymbols() {
  local library
  rm -rf "$stored"
  mkdir -p "$stored"
  while read -r library; do
    symbolsOf "$library" >"$stored/$(basename "$library" .so).symbols"
  done < <(libraries "$kfaTop/build/release")
}

# listUndeclared BUILD: "LIBRARY: SYMBOL" for each, by the names that its demangled form is made of.
listUndeclared() {
  local library words
  words=$(mktemp -d)
  # shellcheck disable=SC2064 # the folder's name now
  trap "rm -rf '$words'" RETURN
  cmake --install "$1" --component development --prefix "$words/installed" >/dev/null
  find "$words/installed" -name '*.h' -exec grep -ohE '[A-Za-z_][A-Za-z_0-9]*' {} + | sort -u >"$words/declared"
  while read -r library; do
    nm -DC --defined-only "$library" | cut -c20- | grep -v 'operator\|^KFA_[0-9]*$' | while read -r symbol; do
      sed -E ':inner; s/<[^<>]*>//; t inner; s/\(.*//; s/\[abi:[a-z0-9]*\]//g; s/@.*//; s/.* //; s/~//; s/::/\n/g' <<<"$symbol" |
        grep -qvxFf "$words/declared" && echo "$(basename "$library" .so): $symbol"
    done
  done < <(libraries "$1") || true
}

# buildWithTypes SOURCE FOLDER
buildWithTypes() {
  cmake -S "$1" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF >/dev/null
  cmake --build "$2" --target KFAFunctionality >/dev/null
}

compareTypes() {
  local folder="$kfaTop/build/abi" library status=0 found
  rm -rf "$folder/source"
  mkdir -p "$folder/source"
  git -C "$kfaTop" archive "$1" | tar -x -C "$folder/source"
  buildWithTypes "$folder/source" "$folder/before"
  buildWithTypes "$kfaTop" "$folder/after"
  while read -r library; do
    found=0
    abidiff --headers-dir1 "$folder/source/core/src" --headers-dir2 "$kfaTop/core/src" --drop-private-types \
      "$library" "$(find "$folder/after" -name "$(basename "$library")")" || found=$?
    # Bits of abidiff's status: 4 a change, 8 one that breaks programs.
    if [ $((found & 3)) != 0 ]; then return 2; fi
    if [ $((found & 8)) != 0 ]; then
      status=1
      echo "$(basename "$library"): incompatible; the soname must change"
    elif [ "$found" != 0 ]; then
      echo "$(basename "$library"): changed compatibly, or to be judged by the lines above; the soname stays"
    fi
  done < <(libraries "$folder/before")
  return "$status"
}

case "${1:-}" in
  "" | --update | --undeclared)
    setUp build
    buildPreset release
    case "${1:-}" in
      "") compareSymbols ;;
      --update) updateSymbols ;;
      *) listUndeclared "$kfaTop/build/release" ;;
    esac
    ;;
  --types)
    setUp build abi
    compareTypes "${2:?"abi.sh: --types takes a revision"}"
    ;;
  *)
    sed -n '3,8{s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}" >&2
    exit 2
    ;;
esac
