#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes a small authority and certificates for a try: certificates.sh FOLDER NAME...
# Each NAME is a host name or an address; what it gets is for both ends of a connection. The authority in FOLDER is used
# again when it is there. FOLDER/ca.pem is its certificate; FOLDER/NAME.pem and FOLDER/NAME.key are those of a name.
set -euo pipefail

days=365
curve=(-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)

makeAuthority() {
  [ ! -e ca.key ] || return 0
  openssl req -x509 "${curve[@]}" -keyout ca.key -out ca.pem -days "$days" -subj "/CN=try authority" \
    -addext "basicConstraints=critical,CA:TRUE" -addext "keyUsage=critical,keyCertSign,cRLSign" 2>/dev/null
}

# The kind of a subject alternative name: IP for an address, DNS for any other.
kindOf() {
  if [[ $1 =~ ^[0-9.]+$ || $1 == *:* ]]; then echo IP; else echo DNS; fi
}

makeCertificate() {
  local name=$1
  openssl req -new "${curve[@]}" -keyout "$name.key" -out "$name.csr" -subj "/CN=$name" 2>/dev/null
  openssl x509 -req -in "$name.csr" -CA ca.pem -CAkey ca.key -CAcreateserial -days "$days" -out "$name.pem" \
    -extfile <(printf '%s\n' "subjectAltName=$(kindOf "$name"):$name" "extendedKeyUsage=serverAuth,clientAuth") \
    2>/dev/null
  rm -f "$name.csr"
}

if [ $# -lt 2 ]; then
  echo "usage: certificates.sh FOLDER NAME..." >&2
  exit 2
fi
umask 077
mkdir -p "$1"
cd "$1"
shift
makeAuthority
for name in "$@"; do
  makeCertificate "$name"
done
