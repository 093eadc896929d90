#!/usr/bin/env bash
# From a fresh clone to a result: installs what is missing, builds the program, converts an example data set and searches
# it for interacting SNPs. TAVO_CUDA=OFF in the environment leaves the CUDA backend out.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_dependencies.sh
cmake --preset release ${TAVO_CUDA:+"-DTAVO_CUDA=$TAVO_CUDA"} >/dev/null
cmake --build --preset release -- --quiet

bin=build/release
work=build/demo
rm -rf "$work"
mkdir -p "$work"
example=examples/gametes-2way-20snps.tsv.gz

echo "Converting $example: 1,600 simulated samples, 20 SNPs; P1 and P2 interact, neither has an effect of its own."
"$bin/tools/tavo-convert" --in "$example" --out "$work/example.tavo" --class target
"$bin/tools/tavo-convert" --info "$work/example.tavo"

echo
echo "Searching all single SNPs, pairs and triples in ten-fold cross-validation (log: $work/run.log)."
# The run leaves its temporary list files in its working directory.
(cd "$work" && "../../$bin/src/tavo" --in example.tavo --out result.csv --order 1-3 --measure ba \
  --tidy result.tsv --thread 256 --block 64 >run.log)

echo
echo "Best combination of each order:"
awk -F, '
  /^<<[0-9]+-Order/ { order = substr($0, 3, index($0, "-") - 3) }
  $1 == "Rank" { for (i = 1; i <= NF; ++i) column[$i] = i }
  $1 == "1" && order != "" {
    printf "  order %s: %-16s consistency %5.2f of 10, balanced accuracy %.4f in training, %.4f in testing\n",
      order, $2, $3, $column["Aver_Train_BA"], $column["Aver_Test_BA"]
    order = ""
  }' "$work/result.csv"
echo
echo "The whole report: $work/result.csv"

echo
echo "Fitting a logistic regression with interaction terms to every pair (log: $work/pairs.log)."
(cd "$work" && "../../$bin/src/tavo" --in example.tavo --out pairs.csv --regression logistic --order 2 \
  --precision double --tidy pairs.tsv --thread 256 --block 64 >pairs.log)
awk -F'\t' '
  NR == 1 { for (i = 1; i <= NF; ++i) column[$i] = i; next }
  NR <= 4 {
    printf "  %s and %s: likelihood ratio %.1f with %d degrees of freedom, p = %.2g\n",
      $column["snp1"], $column["snp2"], $column["lr_statistic"], $column["df"], $column["p"]
  }' "$work/pairs.tsv"
echo
echo "The table of the best pairs: $work/pairs.tsv"

echo
if "$bin/report/tavo-report" --in "$work/result.tsv" --out "$work/result.html" --title "TAVO demo"; then
  echo "A page with pictures of the search, for any browser: $PWD/$work/result.html"
fi
