#!/usr/bin/env bash
# Compiles the search kernels for every architecture and fails when one spills registers to memory. A kernel's own
# arrays (its stack frame) are no spills; both are printed. Needs nvcc, no GPU.
#   scripts/check_spills.sh [architecture...]    default: all that the program is built for
set -euo pipefail
cd "$(dirname "$0")/.."
command -v nvcc >/dev/null || export PATH=$PATH:/usr/local/cuda/bin
architectures=("$@")
if [ ${#architectures[@]} -eq 0 ]; then
  mapfile -t architectures < <(sed -n 's/^ *"\([0-9;a-z-]*\)"$/\1/p' cmake/cuda.cmake | tr ';' '\n' | sed 's/-real//')
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

bad=0
for source in mdr_search gmdr_search; do
  for architecture in "${architectures[@]}"; do
    # The flags of cmake/flags.cmake that decide about code.
    nvcc -std=c++20 -O3 --fmad=false --expt-relaxed-constexpr -I. -gencode "arch=compute_$architecture,code=sm_$architecture" \
      -Xptxas -v -c "cuda/$source.cu" -o "$work/$source.o" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
    awk -v source="$source" -v architecture="$architecture" '
      /Compiling entry function/ {
        name = $0
        sub(/.*entry function ./, "", name)
        sub(/. for .*/, "", name)
        if (match(name, /(mdr|gmdr)_(search_[a-z]+ILi[0-9]+E(Li[0-9]+E)?|build_[a-z]+)/)) {
          name = substr(name, RSTART, RLENGTH)
          sub(/ILi/, "<", name); sub(/ELi/, ", ", name)
          sub(/E$/, ">", name)
        }
      }
      /bytes stack frame/ { frame = $1; stores = $5; loads = $9 }
      /Used [0-9]+ registers/ {
        for (i = 1; i < NF; ++i) if ($i == "Used") registers = $(i + 1)
        printf "sm_%-4s %-24s %4d registers, %5d bytes of arrays, spills: %d stored, %d loaded\n", architecture, name, registers, frame, stores, loads
        ++kernels
        if (stores + loads > 0) bad = 1
      }
      END { if (kernels == 0) { print "no kernel found in " source; bad = 1 } exit bad }' "$work/log" || bad=1
  done
done
if [ "$bad" -ne 0 ]; then
  echo "A search kernel spills registers" >&2
  exit 1
fi
echo "Spills: none on ${architectures[*]}"
