#!/usr/bin/env bash
# tavo-explore on the PLINK example: commands, files, refusals.
#   check_explore.sh TAVO-EXPLORE EXAMPLES
# Ends with 77, a skip, where the build makes no pages.
set -euo pipefail
explore=$1 example=$2/regenie/example pheno=$2/regenie/phenotype_bin.txt covar=$2/regenie/covariates.txt
if ! "$(dirname "$explore")/tavo-report" --version | grep -q ECharts; then
  echo "SKIPPED: this build makes no pages"
  [ "${TAVO_REQUIRE_TOOLS:-}" != 1 ] || exit 1
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() {
  echo "FAILED: $1"
  cat log 2>/dev/null
  exit 1
}
# expect STATUS TEXT WORDS...: the status, and a text among what is printed.
expect() {
  local status=0
  "$explore" "${@:3}" >log 2>&1 || status=$?
  [ "$status" -eq "$1" ] || fail "status $status, expected $1: ${*:3}"
  grep -qF -- "$2" log || fail "no \"$2\": ${*:3}"
}

seq 1 60 >snps.txt
search=(--bfile "$example" --pheno "$pheno" --pheno-name Y1 --extract snps.txt --device cpu)
expect 0 "The page: $work/a folder/report.html" "${search[@]}" --out "a folder" --top 5
[ "$(grep -c '^+ ' log)" -eq 4 ] || fail "not every command is printed"
grep -qE '^\+ .*/tavo --in data.tavo .* --order 1-2 --measure ba --cv 10 ' log || fail "tavo's command is not printed"
for file in data.tavo result.csv result.tsv report.html tavo.log; do
  [ -s "a folder/$file" ] || fail "no $file"
done
[ -z "$(find . -name '*tmp_cv*')" ] || fail "list files are left"
grep -q '<title>result.tsv</title>' "a folder/report.html" || fail "no title"

# Its own folder is written anew, another one is not touched.
expect 0 "The page:" "${search[@]}" --out "a folder" --order 1
cut -f1,4 "a folder/result.tsv" | grep -qE '^combination	2' && fail "the old result is left"
mkdir mine
echo precious >mine/result.csv
expect 1 "mine: exists, and tavo-explore did not make it" "${search[@]}" --out mine
[ "$(cat mine/result.csv)" = precious ] && [ "$(ls -A mine)" = result.csv ] || fail "a foreign folder was touched"
touch file
expect 1 "file: exists" "${search[@]}" --out file

# The first failure ends it, with its status and without what would follow.
expect 1 "tavo-convert ended with status 1" --bfile absent --out b
[ "$(grep -c '^+ ' log)" -eq 1 ] || fail "it goes on after a failure"
expect 1 "tavo ended with status 1" "${search[@]}" --out b --measure none
[ ! -e b/report.html ] || fail "a page without a result"
[ ! -e b/result.tsv ] || fail "a table without a result"

# Without pages it does not even begin.
mkdir bare
cp "$explore" bare/
ln -s "$(dirname "$explore")/../tools/tavo-convert" "$(dirname "$explore")/../src/tavo" bare/
printf '#!/bin/sh\necho "pages: none in this build"\n' >bare/tavo-report
chmod +x bare/tavo-report
(explore=$work/bare/tavo-explore && expect 1 "tavo-explore: this build makes no pages" "${search[@]}" --out d)
[ ! -e d ] || fail "it began without pages"

regress=(--bfile "$example" --covar "$covar" --device cpu --out c)
expect 0 "--map $example.bim" "${regress[@]}" --pheno "$pheno" --pheno-name Y1 --regression logistic --precision double
grep -q '^number' c/result.tsv || fail "no table of a regression"
expect 2 "--covar is for --regression" "${regress[@]}"
expect 2 "needs a value" --bfile
expect 2 "one input only" --bfile a --vcf b --out c
expect 2 "--out is needed" --bfile a
expect 2 "expected an option" x
expect 2 "is tavo-explore's own business" --bfile a --out c --tidy x
expect 0 "usage: tavo-explore" --help
echo ok
