#!/usr/bin/env bash
# Runs the commands of the tutorial, word by word and in their order, in a folder of their own, and looks at what it
# promises: the planted pair first, in the picture, in the search and in the regression.
#   run_tutorial.sh TUTORIAL FOLDER...      folders of the programs
set -euo pipefail
tutorial=$1
shift
for folder in "$@"; do
  PATH=$folder:$PATH
done
if ! tavo-report --version | grep -q '^pages: drawn'; then
  echo "SKIPPED: tavo-report makes no pages in this build"
  [ "${TAVO_REQUIRE_TOOLS:-}" != 1 ] || exit 1
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/^```sh$/ { code = 1; next } /^```$/ { code = 0 } code' "$tutorial" >"$work/commands"
[ "$(grep -c '^tavo' "$work/commands")" -ge 9 ] || { echo "the tutorial has lost its commands"; exit 1; }

cd "$work"
bash -euo pipefail commands | tee output
grep -q '^1,( snp40 snp171 ),10.000000,0.62' result.csv
grep -q '^1,( snp88 ),.*,0.54' result.csv
# No permuted search reaches the pair; half of them reach the best single SNP, and one in twenty among single SNPs.
awk -F'\t' '
  NR == 1 { for (i = 1; i <= NF; ++i) column[$i] = i }
  $1 == "combination" && $column["rank"] == 1 {
    p[$column["order"]] = $column["p_testing_all_orders"]
    own[$column["order"]] = $column["p_testing"]
  }
  END { exit !(p[2] < 0.001 && p[1] > 0.555 && p[1] < 0.565 && own[1] > 0.045 && own[1] < 0.055) }' tested.tsv || { echo "other p-values: $(tail -n 1 tested.log)"; exit 1; }
for page in explored/report.html result.html scan.html; do
  [ "$(head -c 15 "$page")" = "<!doctype html>" ] || { echo "$page is no page"; exit 1; }
done
# Of the pair's table: names, statistic, the textbook's degrees of freedom, p.
grep -qE '^snp40\ssnp171\s95\.1[0-9]*\s8\s[0-9.]+e-1[0-9]$' output
