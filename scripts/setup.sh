#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages that a kind of work needs and that are missing: setup.sh build|test|bench|fuzz|coverage|faults|lint|abi|package ...
# Uses root's rights or sudo, says what it installs, and does nothing when nothing is missing.
set -euo pipefail

packagesFor() {
  local build="g++ cmake ninja-build libboost-dev libexpat1-dev libcli11-dev nlohmann-json3-dev libdtl-dev"
  build+=" libgrpc++-dev libprotobuf-dev protobuf-compiler protobuf-compiler-grpc libssl-dev libsystemd-dev pkg-config"
  build+=" pybind11-dev python3-dev"
  local test="$build libgtest-dev libgmock-dev libxml2-utils acl attr locales bash-builtins openssl git bsdutils"
  test+=" python3-grpcio python3-protobuf"
  test+=" man-db groff-base mandoc python3-pytest mypy ansible-core"
  test+=" chromium-headless-shell jq"
  local peers="libbenchmark-dev libpugixml-dev libxml2-dev libglib2.0-dev libaugeas-dev libmuparser-dev liblmdb-dev"
  case "$1" in
    build) echo "$build" ;;
    test) echo "$test" ;;
    bench) echo "$build $peers jq libgtest-dev openssl" ;;
    fuzz) echo "$build bash-builtins clang-14 libclang-rt-14-dev llvm-14" ;;
    coverage) echo "$test clang-14 libclang-rt-14-dev llvm-14" ;;
    faults) echo "$test strace" ;;
    lint) echo "$test $peers clang-14 clang-tidy-14 clang-format-14" ;;
    abi) echo "abigail-tools" ;;
    package) echo "$build debhelper dh-python dpkg-dev doxygen help2man lintian debootstrap" ;;
    *)
      echo "setup.sh: unknown kind '$1'; one of build, test, bench, fuzz, coverage, faults, lint, abi, package" >&2
      return 2
      ;;
  esac
}

# The packages of the list that are not installed, one a line.
missingOf() {
  local package
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
  done
}

asRoot() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "setup.sh: installing needs root's rights: run as root, or install sudo" >&2
    return 1
  fi
}

setUp() {
  local kind list="" missing log
  for kind in "$@"; do
    list+=" $(packagesFor "$kind")" || return 2
  done
  # shellcheck disable=SC2086 # the list is meant to be split
  mapfile -t missing < <(missingOf $list | sort -u)
  [ "${#missing[@]}" -gt 0 ] || return 0
  echo "installing: ${missing[*]}" >&2
  log=$(mktemp)
  if ! { asRoot apt-get update -q &&
    asRoot env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null; then
    tail -n 30 "$log" >&2
    echo "setup.sh: the packages could not be installed; the whole log is $log" >&2
    return 1
  fi
  rm -f "$log"
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
  if [ $# -eq 0 ]; then
    echo "usage: setup.sh build|test|bench|fuzz|coverage|faults|lint|abi|package ..." >&2
    exit 2
  fi
  setUp "$@"
fi
