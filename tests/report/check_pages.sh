#!/usr/bin/env bash
# Makes pages of every kind and looks at them in headless Chromium.
#   check_pages.sh TAVO TAVO-CONVERT TAVO-REPORT EXAMPLES
# Ends with 77, a skip, where something that it needs is missing.
set -euo pipefail
tavo=$1 convert=$2 report=$3 examples=$4
here=$(cd "$(dirname "$0")" && pwd)

skip() {
  echo "SKIPPED: $1"
  [ "${TAVO_REQUIRE_TOOLS:-}" != 1 ] || exit 1
  exit 77
}
browser=$(command -v chromium || command -v chromium-browser || command -v google-chrome) || skip "chromium is missing"
command -v node >/dev/null || skip "node is missing"
"$report" --version | grep -q ECharts || skip "this build makes no pages"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
search=(--measure ba --thread 256 --block 16 --device cpu)
{
  "$convert" --in "$examples/gametes-2way-20snps.tsv.gz" --out e.tavo --class target
  "$tavo" --in e.tavo --out mdr.csv --order 1-3 "${search[@]}" --tidy mdr.tsv
  "$tavo" --in e.tavo --out one.csv --order 2 --top 1 "${search[@]}" --tidy one.tsv
  "$tavo" --in e.tavo --out all.csv --order 2 --mode 3 "${search[@]}" --tidy all.tsv
  "$convert" --bfile "$examples/regenie/example" --pheno "$examples/regenie/phenotype.txt" --pheno-name Y1 --quantitative \
    --out q.tavo
  "$tavo" --in q.tavo --out q.csv --regression linear --thread 256 --block 4 --device cpu --tidy linear.tsv
  "$convert" --in e.tavo --out few.tavo --extract <(printf 'N0\nN1\nN2\nP1\nP2\n')
  "$tavo" --in few.tavo --out pairs.csv --regression logistic --order 2 --thread 256 --block 4 --device cpu --tidy pairs.tsv
  # Names that would break out of a page.
  awk 'BEGIN {
    print "</script><script>window.owned=1</script>\t<img src=x onerror=window.owned=2>\t\"onfocus=\"window.owned=3\t{b|x}{{DATA}}\tClass"
    for (i = 0; i < 200; ++i) {
      a = i % 3; b = int(i / 3) % 3
      print a "\t" b "\t" (i * 7) % 3 "\t" int(i / 5) % 3 "\t" ((a == 1) != (b == 1) ? 1 : i % 11 == 0)
    }
  }' >hostile.txt
  "$convert" --in hostile.txt --out h.tavo
  "$tavo" --in h.tavo --out h.csv --order 1-2 "${search[@]}" --tidy hostile.tsv
} >log 2>&1 || { cat log; exit 1; }
sed 's/\bN\([0-9]\)/chr1:1234567:A:G-\1/g' mdr.tsv >long.tsv
for page in mdr one all pairs long; do
  "$report" --in $page.tsv --out $page.html
done
"$report" --in mdr.csv --out csv.html
"$report" --in linear.tsv --map "$examples/regenie/example.bim" --out linear.html
printf '1\tnone-of-them\t0\t5\tA\tG\n' >other.bim
"$report" --in linear.tsv --map other.bim --out unplaced.html 2>/dev/null
"$report" --in hostile.tsv --out hostile.html --title '<img src=x onerror=window.owned=4>'
node "$here/check_pages.mjs" "$browser" "$work"
