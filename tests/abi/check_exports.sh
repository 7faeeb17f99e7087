#!/usr/bin/env bash
# Holds the shared library's dynamic symbol table to the list beside this
# script, so that an accidental export, or a lost one, fails the suite.
#
#   check_exports.sh LIBRARY            compare
#   check_exports.sh LIBRARY --update   rewrite the list after a deliberate change
#
# Weak instantiations of the standard library's templates, and the unique
# copies of their local statics (from_chars keeps a table so), are left out:
# the compiler decides which of them an inline function drags along.
set -euo pipefail
lib=$1
list=$(dirname "$0")/exported_symbols.txt

exported() {
  nm -D --defined-only "$lib" |
    awk '{ print $2, $3 }' |
    while read -r kind name; do
      # By the mangled name, so that a return type in front (which c++filt
      # prints first for a template function) does not hide the namespace.
      if [[ $kind == [Wwu] && $name =~ ^_ZZ?N?K?(St|9__gnu_cxx) ]]; then
        continue
      fi
      echo "$name"
    done | sort -u
}

if [[ ${2:-} == --update ]]; then
  exported > "$list"
  echo "wrote $(wc -l < "$list") symbols to $list"
  exit 0
fi

diff <(sort -u "$list") <(exported) > /tmp/qz_exports.$$ && status=0 || status=$?
if [[ $status -ne 0 ]]; then
  echo "The exported symbols of $lib differ from $list:"
  sed -n 's/^> /  exported, not listed: /p; s/^< /  listed, not exported: /p' /tmp/qz_exports.$$ |
    while IFS= read -r line; do echo "$line  ($(c++filt "${line##* }"))"; done
  echo "A new public API: add QZ_API to it and run '$0 $lib --update'."
  echo "Otherwise keep it out of the table (no QZ_API, or move it into detail/)."
fi
rm -f /tmp/qz_exports.$$
exit "$status"
