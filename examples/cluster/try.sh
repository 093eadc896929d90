#!/usr/bin/env bash
# What search.slurm does, on this machine: simulates data, searches it with two ranks of one worker each, and once more
# alone; both must find the same.
#   examples/cluster/try.sh [FOLDER OF tavo [FOLDER OF tavo-simulate [MPIRUN]]]
set -euo pipefail
tavo=${1:+$(realpath "$1")/}tavo
simulate=${2:+$(realpath "$2")/}tavo-simulate
mpirun=${3:-mpirun}

# Open MPI: more ranks than processors, and root in containers.
export OMPI_MCA_rmaps_base_oversubscribe=1 OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$simulate" --out "$work/data.tavo" --samples 400 --snps 300 --seed 1 --model maf=0.3,heritability=0.2

search() {  # RESULT [LAUNCHER...]
  local result=$1
  shift
  # The run leaves its temporary list files in its working directory.
  (cd "$work" && "$@" "$tavo" --in data.tavo --out "$result" --order 2 --measure ba --thread 256 --block 64 \
    --device cpu --gpu 1 --checkpoint "$result.checkpoint" >"$result.log")
}
search ranks.csv "$mpirun" -n 2 --bind-to none
search alone.csv

# All but the time and the command, in which the names of the files differ.
lasting() {
  grep -vE '^(Total time|Command|2.result_file),' "$work/$1"
}
if ! diff <(lasting ranks.csv) <(lasting alone.csv); then
  echo "try.sh: two ranks have found something else than one process" >&2
  exit 1
fi
grep -A1 '^Rank,' "$work/ranks.csv" | cut -d, -f1-4
echo "Two ranks and one process have found the same."
