#!/usr/bin/env bash
# Runs the code of a language that stands under a heading of a document, on the table of a run of the example.
#   run_snippet.sh r|python DOCUMENT HEADING TAVO TAVO-CONVERT EXAMPLE
# Ends with 77, a skip, where the language is missing.
set -euo pipefail
language=$1 document=$2 heading=$3 tavo=$4 convert=$5 example=$6
interpreter=python3
[ "$language" = r ] && interpreter=Rscript
if ! command -v "$interpreter" >/dev/null; then
  echo "SKIPPED: $interpreter is missing"
  [ "${TAVO_REQUIRE_TOOLS:-}" != 1 ] || exit 1
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk -v heading="$heading" -v fence="\`\`\`$language" '
  /^## / { inside = $0 == heading }
  code && /^```$/ { code = 0 }
  code { print }
  inside && $0 == fence { code = 1 }' "$document" >"$work/code"
[ -s "$work/code" ] || { echo "no $language code under $heading"; exit 1; }

cd "$work"
"$convert" --in "$example" --out e.tavo --class target >/dev/null
"$tavo" --in e.tavo --out r.csv --order 1-3 --measure ba --thread 256 --block 16 --device cpu --tidy r.tsv >/dev/null
"$interpreter" code | tee output
# The planted pair is the first that is printed.
grep -qE '^ *1 +P1 +P2 +10' output
