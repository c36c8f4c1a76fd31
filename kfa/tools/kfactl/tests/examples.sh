#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every example of the manual pages, each in a copy of the example node with what examples speak of, and prints those
# that end in trouble: examples.sh NODE. The last line is how many there are.
set -u
export LC_ALL=C.UTF-8

# The folder of the node with the files that examples name.
prepare() {
  cp -r "$1/conf/." . && cp "$1/global.conf" . && cp global.conf global.conf.old && cp 101.conf 101.conf.old
  mkdir -p uploads samples backup/conf man
  cp 101.conf backup.conf && cp 102.conf samples/basic.conf && cp ./1*.conf backup/conf
  cp 101.conf base.conf && sed 's/^ONBOOT=.*/ONBOOT="no"/' 101.conf >ours.conf && cp 101.conf theirs.conf
  kfactl message from-config 101.conf >101.xml
  cp "$SOURCE/examples/messages/template.xml" . 
  sed '/<e*id>/d; s/<core:os>.*/<core:os><\/core:os>/; s/>nginx</>debian-12</; s/>1.22.1</>20261101</; s/>application</>os</
       s/<os_template>false/<os_template>true/' "$SOURCE/examples/messages/templateobject.xml" >debian-12.xml
  cp "$SOURCE/data/vocabulary.xml" my.xml
  for cache in template.cache other.cache uploads/template.cache; do kfactl cache create $cache; done
  kfactl cache put template.cache debian-12.xml >/dev/null
}

# The examples of a page: lines of a block that stands as it is. Places of the system become those of the copy.
examplesOf() {
  kfactl manual "$1" | sed -n '/^\.nf/,/^\.fi/s/^kfactl /&/p' |
    sed 's/\\-/-/g; s/\\(aq/'"'"'/g; s/\\(ti/~/g; s/\\(ha/^/g; s/\\(ga/`/g; s/\\e/\\/g
         s#/etc/kfa/conf#.#g; s#/etc/kfa#.#g; s#/var/lib/kfa/uploads#uploads#g; s#/usr/local/share/man#man#g
         s#examples/node/conf#.#g'
}

pages=$(kfactl manual . 2>&1 | sed 's/.*one of//')
prepared=$(mktemp -d)
trap 'rm -rf "$prepared" "$prepared.run"' EXIT
node=$(realpath "$1")
(cd "$prepared" && prepare "$node") || exit 2
count=0
while IFS= read -r example; do
  count=$((count + 1))
  rm -rf "$prepared.run"
  cp -r "$prepared" "$prepared.run"
  limit=()
  case $example in
    *"kfactl "*"watch"*) limit=(timeout --preserve-status -s INT 1) ;; # until somebody interrupts it
    "kfactl qos check") rm "$prepared.run/"11[23].conf ;; # broken on purpose
    *"cache create uploads"*) rm "$prepared.run/uploads/template.cache" ;;
    *" put template.cache *.xml"*) rm "$prepared.run/"{101,template,my}.xml ;;
  esac
  (cd "$prepared.run" && KFA_NODE=. KFA_UPLOADS_DIR=uploads "${limit[@]}" bash -c "$example" >out 2>&1 </dev/null)
  status=$?
  [ "$status" -le 1 ] || [ "$status" = 130 ] || printf '%s\n  ended with %s: %s\n' "$example" "$status" "$(head -n 2 "$prepared.run/out")"
done < <(for page in $pages; do examplesOf "$page"; done | sort -u)
echo "$count examples"
