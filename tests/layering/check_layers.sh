#!/usr/bin/env bash
# Holds the library to its floors: a folder includes only from its own floor
# or the floors below, and an installed (public) header never includes a
# detail/ header, which is not installed. Usage: check_layers.sh SOURCE_DIR
#
# Floors, lowest first. A path belongs to the longest prefix that names it.
set -euo pipefail
cd "${1:-$(dirname "$0")/../..}"

floors=(
  "qzstd"          # threads, locks, containers, memory and file utilities, loading, the directory map
  "qzunicode"      # UString, character sets and converters
  "qzmsg"          # contexts, catalogue, messages, actions, error context
  "qzlog"          # logging core, activity buffer and reader
  "qzsca"          # JSON value and path, service logger names
  "qzlog/config"   # XML logging configuration and its discovery
  "qzapp"          # parameter scanning, object names, record dumps
  "app/qzadmin"    # task time
)

floor_of() {
  local path=$1 best=-1 bestlen=0 i
  for i in "${!floors[@]}"; do
    local f=${floors[$i]}
    if [[ $path == "$f/"* && ${#f} -gt $bestlen ]]; then
      best=$i
      bestlen=${#f}
    fi
  done
  echo "$best"
}

failures=0
while IFS= read -r file; do
  from=$(floor_of "$file")
  [[ $from -ge 0 ]] || continue
  while IFS= read -r line; do
    inc=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"([^"]+)".*/\1/' <<<"${line#*:}")
    to=$(floor_of "$inc")
    [[ $to -ge 0 ]] || continue
    if [[ $to -gt $from ]]; then
      echo "$file:${line%%:*}: includes $inc, a floor above (${floors[$to]} over ${floors[$from]})"
      failures=$((failures + 1))
    fi
    if [[ $file == *.h && $file != */detail/* && $inc == */detail/* ]]; then
      echo "$file:${line%%:*}: public header includes $inc, which is not installed"
      failures=$((failures + 1))
    fi
  done < <(grep -n -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" || true)
done < <(find "${floors[@]}" -type f \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | sort)

if [[ $failures -gt 0 ]]; then
  echo "$failures include(s) break the floors"
  exit 1
fi
echo "floors hold"
