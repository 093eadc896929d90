#!/usr/bin/env bash
# Builds the fuzz targets, replays their corpora and fuzzes each of them, two at a time.
#   scripts/fuzz.sh                        20 seconds each
#   scripts/fuzz.sh SECONDS [TARGET...]    that long; 0 only replays
#   scripts/fuzz.sh --runs N TARGET...     until each has made N executions, one after the other
#   scripts/fuzz.sh --merge TARGET...      adds to fuzz/corpus what reaches code that nothing there reaches
# What a run finds stays in build/fuzz/found/TARGET; an input that fails is named with the command that replays it.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/fuzz
found=$build/found
# Longer inputs find nothing that short ones do not, and slow everything down.
longest=640

seconds=20
runs=
at_once=2
merge=
case ${1:-} in
  --runs)
    runs=$2
    at_once=1
    shift 2
    ;;
  --merge)
    merge=yes
    shift
    ;;
  [0-9]*)
    seconds=$1
    shift
    ;;
esac
[ -f "$build/build.ninja" ] || cmake --preset fuzz >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(sed -n 's/^tavo_fuzz_target(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
fi
cmake --build "$build" --target "${targets[@]/#/fuzz_}" -- --quiet

# Arguments of libFuzzer that all uses share. What the readers print goes nowhere.
arguments() {
  echo -close_fd_mask=3 -max_len=$longest -timeout=10 -rss_limit_mb=2048 -artifact_prefix="$found/$1/failed-"
  if [ -f "fuzz/dictionaries/$1" ]; then
    echo "-dict=fuzz/dictionaries/$1"
  fi
}

# One target; says in one line what it did. What it wrote is shown when it failed.
fuzz() {
  local target=$1
  local log=$found/$target.log
  mkdir -p "$found/$target/corpus"
  local status=0
  local -a limits=(-max_total_time="$seconds")
  if [ -n "$runs" ]; then
    limits=(-runs="$runs")
  elif [ "$seconds" -eq 0 ]; then
    limits=(-runs=0)
  fi
  # shellcheck disable=SC2046
  "$build/fuzz/fuzz_$target" $(arguments "$target") "${limits[@]}" -print_final_stats=1 "$found/$target/corpus" \
    "fuzz/corpus/$target" >"$log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$log"
    for input in "$found/$target"/failed-*; do
      [ -e "$input" ] || continue
      echo "fuzz: $target fails; replay: $build/fuzz/fuzz_$target $input" >&2
    done
    return 1
  fi
  local done_line
  done_line=$(grep -aE '^#[0-9]+.*DONE' "$log" | tail -n 1)
  printf 'fuzz: %-18s %s\n' "$target" \
    "$(sed -E 's/^#([0-9]+)\s+DONE\s+cov: ([0-9]+) ft: ([0-9]+) corp: ([^ ]+).*exec\/s: ([0-9]+).*/\1 executions, \2 edges, \3 features, \5 a second/' <<<"$done_line")"
}

# Adds inputs to the corpus that reach code which no other of it reaches; how often it is run makes no difference.
merge_corpus() {
  local target=$1
  # shellcheck disable=SC2046
  "$build/fuzz/fuzz_$target" $(arguments "$target") -merge=1 -use_counters=0 "fuzz/corpus/$target" "$found/$target/corpus" \
    >"$found/$target.merge.log" 2>&1
  echo "fuzz: $target: $(find "fuzz/corpus/$target" -type f | wc -l) inputs in fuzz/corpus/$target"
}

if [ -n "$merge" ]; then
  for target in "${targets[@]}"; do
    merge_corpus "$target"
  done
  exit 0
fi
failed=0
running=0
for target in "${targets[@]}"; do
  if [ "$running" -eq "$at_once" ]; then
    wait -n || failed=1
    running=$((running - 1))
  fi
  fuzz "$target" &
  running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
  wait -n || failed=1
  running=$((running - 1))
done
if [ "$failed" -ne 0 ]; then
  echo "fuzz: failed" >&2
  exit 1
fi
echo "fuzz: ${#targets[@]} targets, nothing found"
