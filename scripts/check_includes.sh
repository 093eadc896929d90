#!/usr/bin/env bash
# Data and calls flow one way: each folder includes only what stands below it, CUDA stays in cuda/, and every header
# compiles by itself.
set -euo pipefail
cd "$(dirname "$0")/.."

# folder -> the project headers that it may include, as a pattern.
declare -A allowed=(
  [util]='^util/'
  [lib]='^(lib|util)/'
  [device]='^(device|lib|util)/'
  [cpu]='^(cpu|device|lib|util)/'
  [cuda]='^(cuda|device|lib|util)/'
  [cluster]='^(cluster|device|lib|util)/'
  [src]='^(src|device|lib|util)/'
  [tools]='^(tools|lib|util)/|^src/FileIO\.h$'
  [report]='^(report|tools|lib|util)/'
  [fuzz]='^(fuzz|report|tools|src|cluster|cpu|device|lib|util)/'
)
# The one file that knows every backend by name.
backend_list=device/backends.cpp
# The files of the program, not of its library, that know of other ranks.
rank_files='^src/(main|rank_run)\.(cpp|h)$'

bad=0
for folder in "${!allowed[@]}"; do
  while IFS=: read -r file line text; do
    header=${text#*\"}
    header=${header%%\"*}
    if [[ $file == "$backend_list" && $header =~ ^(cpu|cuda)/ ]]; then
      continue
    fi
    if [[ $file =~ $rank_files && $header =~ ^cluster/ ]]; then
      continue
    fi
    if ! [[ $header =~ ${allowed[$folder]} ]]; then
      echo "$file:$line: $folder/ may not include $header" >&2
      bad=1
    fi
  done < <(grep -rnE --include='*.cpp' --include='*.h' --include='*.cu' --include='*.cuh' --include='*.inc' \
    '^#include "' "$folder" 2>/dev/null)
done
if grep -rnE --include='*.cpp' --include='*.h' '^#include <(cuda|cu[a-z]+)(_[a-z_]+)?\.h>' util lib device cpu cluster src tools report fuzz; then
  echo "CUDA headers may stand in cuda/ only" >&2
  bad=1
fi
if git grep -nE '^#include <mpi\.h>' -- ':!cluster/mpi_transport.cpp' ':!bench/scale/hand_out.cpp'; then
  echo "MPI's header may stand in cluster/mpi_transport.cpp, and in its bench, only" >&2
  bad=1
fi

mapfile -t headers < <(git ls-files --cached --others --exclude-standard -- '*.h' | grep -v '^cuda/')
printf '%s\n' "${headers[@]}" | xargs -P "$(nproc)" -I{} sh -c \
  'echo "#include \"{}\"" | g++ -std=c++20 -I. -fsyntax-only -x c++ - || { echo "{} does not compile by itself" >&2; exit 255; }'
[ "$bad" -eq 0 ] && echo "Includes: clean (${#headers[@]} headers compile by themselves)"
exit "$bad"
