#!/bin/bash
# SPDX-License-Identifier: MIT
# collection_is_sound.sh SOURCES: the collection's documentation can be shown, and Ansible's own tests of its sources that
# need no network find nothing.
set -u
sources=$1
for program in ansible-doc ansible-test unshare; do
    command -v $program >/dev/null || { echo "skipped: there is no $program"; exit 77; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export HOME=$folder/home LC_ALL=C.UTF-8 ANSIBLE_COLLECTIONS_PATH=$folder ANSIBLE_LOCAL_TEMP=$folder/tmp ANSIBLE_NOCOLOR=1
collection=$folder/ansible_collections/hostadm/netboot
mkdir -p "$HOME" "${collection%/*}"
cp -a "$sources/ansible/hostadm/netboot" "$collection"
cd "$collection" || exit 1
failures=0

for page in "module hostadm" "module client" "module service" "module share" "module hostadm_facts" "inventory clients"; do
    # shellcheck disable=SC2086 # two words
    set -- $page
    text=$(ansible-doc -t "$1" "hostadm.netboot.$2" 2>&1) && case $text in *EXAMPLES:*) true ;; *) false ;; esac ||
        { echo "FAILED: the page of $page: $text"; failures=1; }
done

# The others fetch what they need; of those, the one that reads documentation and arguments runs by itself below.
fetching="ansible-doc changelog import pep8 pslint pylint runtime-metadata shellcheck validate-modules yamllint"
skip=""
for name in $fetching; do skip="$skip --skip-test $name"; done
# shellcheck disable=SC2086 # words
out=$(unshare -rn ansible-test sanity --color no --python "$(/usr/bin/python3 -c 'import sys; print("%d.%d" % sys.version_info[:2])')" \
    --python-interpreter /usr/bin/python3 $skip 2>&1) || { echo "FAILED: ansible-test sanity: $out"; failures=1; }

validate=$(/usr/bin/python3 -c 'import os, ansible_test; print(os.path.dirname(ansible_test.__file__))')/_util/controller/sanity
if /usr/bin/python3 -c 'import voluptuous' 2>/dev/null; then
    for kind in modules inventory; do
        type=""
        [ $kind = modules ] || type="--plugin-type inventory"
        # shellcheck disable=SC2086 # words, or none
        out=$(/usr/bin/python3 "$validate/validate-modules/validate.py" --format plain --arg-spec \
            --collection ansible_collections/hostadm/netboot --collection-version 1.0.0 $type plugins/$kind 2>&1 |
            grep -v ' Emissing-gplv3-license ') # its licence is another, as tests/sanity says
        [ -z "$out" ] || { echo "FAILED: validate-modules: $out"; failures=1; }
    done
fi
if command -v pycodestyle >/dev/null; then
    pycodestyle --max-line-length=120 --ignore=E402,W503 plugins || { echo "FAILED: pycodestyle"; failures=1; }
fi
if command -v yamllint >/dev/null; then
    find . -name '*.yml' -exec yamllint -c "$validate/yamllint/config/default.yml" {} + || failures=1
fi
[ $failures = 0 ]
