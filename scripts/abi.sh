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

# symbolsOf LIBRARY [undeclared]: its exported symbols, mangled, that some header which is installed declares; or else those
# that none does. A symbol is declared when every name that its demangled form is made of stands in a header.
symbolsOf() {
  local symbols
  symbols=$(nm -D --defined-only "$1" | awk '$2 != "A" {print $NF}' | sed 's/@.*//' | LC_ALL=C sort -u)
  paste <(echo "$symbols") <(c++filt <<<"$symbols") | awk -F '\t' -v wanted="${2:-declared}" '
    NR == FNR {known[$1]; next}
    {
      name = $2
      sub(/ const$/, "", name)
      while (gsub(/<[^<>]*>/, "", name)) {}
      sub(/\(.*/, "", name)
      gsub(/\[abi:[a-z0-9]*\]|~/, "", name)
      sub(/.* /, "", name)
      count = split(name, words, "::")
      found = "declared"
      if (name !~ /operator/)
        for (i = 1; i <= count; ++i) if (!(words[i] in known)) found = "undeclared"
      if (found == wanted) print $1
    }' <(declaredNames) -
}

# The names in the headers that the release build installs.
declaredNames() {
  local folder="$kfaTop/build/abi/headers"
  rm -rf "$folder"
  cmake --install "$kfaTop/build/release" --component development --prefix "$folder" >/dev/null
  find "$folder" -name '*.h' -exec grep -ohE '[A-Za-z_][A-Za-z_0-9]*' {} + | sort -u
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

listUndeclared() {
  local library
  while read -r library; do
    symbolsOf "$library" undeclared | c++filt | sed "s/^/$(basename "$library" .so): /"
  done < <(libraries "$kfaTop/build/release")
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
    buildPreset release KFAFunctionality KFARemote
    case "${1:-}" in
      "") compareSymbols ;;
      --update) updateSymbols ;;
      *) listUndeclared ;;
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
