#!/usr/bin/env bash
# Compiles the kernels for every architecture and fails when one spills registers to memory that is not known to. A
# kernel's own arrays (its stack frame) are no spills; both are printed. Needs nvcc, no GPU. The fits take minutes.
#   scripts/check_spills.sh [--search] [architecture...]    --search: the search kernels alone
#                                                           default: all that the program is built for
set -euo pipefail
cd "$(dirname "$0")/.."
command -v nvcc >/dev/null || export PATH=$PATH:/usr/local/cuda/bin
sources=(mdr_search mdr_tiles gmdr_search occupied_cells regression regression_ordered)
if [ "${1:-}" = --search ]; then
  sources=(mdr_search mdr_tiles gmdr_search occupied_cells)
  shift
fi
architectures=("$@")
if [ ${#architectures[@]} -eq 0 ]; then
  mapfile -t architectures < <(sed -n 's/^ *"\([0-9;a-z-]*\)"$/\1/p' cmake/cuda.cmake | tr ';' '\n' | sed 's/-real//')
fi
# Fits that spill: those in double precision with many sums, the distinct one by some words, and from 10.0 on the
# linear one around its calls.
known='^(regression_logistic<double, 7>|regression_ordered_logistic<double, [37]>|regression_ordered_logistic_distinct<(float|double)>)$'
known_from_10='^regression_linear<(float|double)>$'
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Writes what the assembler says of one source and architecture to a log of its own.
compile() {
  local out=$work/$1.$2
  # The flags of cmake/flags.cmake that decide about code.
  nvcc -std=c++20 -O3 --fmad=false --expt-relaxed-constexpr -I. -gencode "arch=compute_$2,code=sm_$2" \
    -Xptxas -v -c "cuda/$1.cu" -o "$out.o" >"$out.log" 2>&1 || touch "$out.failed"
}

for source in "${sources[@]}"; do
  for architecture in "${architectures[@]}"; do
    # As many at once as there are processors.
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do
      wait -n
    done
    compile "$source" "$architecture" &
  done
done
wait

bad=0
for source in "${sources[@]}"; do
  for architecture in "${architectures[@]}"; do
    log=$work/$source.$architecture.log
    if [ -e "$work/$source.$architecture.failed" ]; then
      cat "$log"
      exit 1
    fi
    awk -v source="$source" -v architecture="$architecture" -v known="$known" -v known_from_10="$known_from_10" '
      /Compiling entry function/ {
        name = $0
        sub(/.*entry function ./, "", name)
        sub(/. for .*/, "", name)
        # Behind the mark of the file, 8 digits and a length: the name, then I, the template arguments and EE.
        name = substr(name, index(name, "_cu_") + 12)
        sub(/^[0-9]+/, "", name)
        match(name, /^[a-z_0-9]+/)
        arguments = substr(name, RLENGTH + 1)
        name = substr(name, 1, RLENGTH)
        if (arguments ~ /^I/) {
          sub(/^I/, "", arguments); sub(/EE?v.*/, "", arguments)
          sub(/15PopcountProduct/, "popcount", arguments); sub(/13BinaryProduct/, "mma-b1", arguments)
          sub(/11ByteProduct/, "mma-u8", arguments)
          sub(/^f/, "float", arguments); sub(/^d/, "double", arguments)
          sub(/^Li/, "", arguments); gsub(/E?Li/, ", ", arguments)
          sub(/E$/, "", arguments)
          name = name "<" arguments ">"
        }
      }
      /bytes stack frame/ { frame = $1; stores = $5; loads = $9 }
      /Used [0-9]+ registers/ {
        for (i = 1; i < NF; ++i) if ($i == "Used") registers = $(i + 1)
        note = ""
        if (stores + loads > 0) {
          if (name ~ known || (architecture >= 100 && name ~ known_from_10)) note = " (known)"
          else bad = 1
        }
        printf "sm_%-4s %-46s %4d registers, %5d bytes of arrays, spills: %d stored, %d loaded%s\n", architecture, name, registers, frame, stores, loads, note
        ++kernels
      }
      END { if (kernels == 0) { print "no kernel found in " source; bad = 1 } exit bad }' "$log" || bad=1
  done
done
if [ "$bad" -ne 0 ]; then
  echo "A kernel spills registers that is not known to" >&2
  exit 1
fi
echo "Spills: none but the known ones on ${architectures[*]}"
