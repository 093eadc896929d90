#!/usr/bin/env bash
# Everything that needs a GPU, on a machine that has one and the CUDA toolkit. Installs nothing, fetches nothing.
#   scripts/gpu-check.sh [build folder]    default build/gpu
# Builds for the GPU that is there, runs the tests labelled gpu, whole runs on the CPU against the GPU, compute-sanitizer
# on small runs, and the bench. What the machine lacks is skipped, and the last lines say so. The status is 0 when all
# of it ran and passed, 1 when something failed, 2 when nothing failed and something was skipped. Steps that have not
# ended after 530 s in all fail. Environment:
#   CMAKE_PREFIX_PATH   where GoogleTest, nlohmann-json and zlib are, if not in the system
set -uo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/gpu}
jobs=$(nproc)
failed=()
skipped=()
step_started=$SECONDS

# The seconds that a step may take: as many as given, as long as there are.
within() {
  local left=$((530 + step_started - SECONDS))
  echo $((left < 1 ? 1 : left < $1 ? left : $1))
}

step() {
  echo "== $1 (at $((SECONDS - step_started)) s)"
}

if command -v nvidia-smi >/dev/null; then
  nvidia-smi --query-gpu=name,driver_version,memory.total --format=csv,noheader || echo "nvidia-smi fails; the tests below say whether the GPU can be used"
fi
command -v nvcc >/dev/null || export PATH=$PATH:/usr/local/cuda/bin
nvcc --version | tail -2 || { echo "gpu-check: no nvcc" >&2; exit 1; }

step "configure"
generator=()
if command -v ninja >/dev/null; then
  generator=(-G Ninja)
fi
configure() {
  cmake "${generator[@]}" -S . -B "$build" -DCMAKE_BUILD_TYPE= -DCMAKE_CXX_FLAGS="-O2 -g" -DTAVO_CUDA=ON \
    -DTAVO_CUDA_ARCHITECTURES="${TAVO_CUDA_ARCHITECTURES:-native}" "$@" >"$build/configure.log" 2>&1
}
mkdir -p "$build"
targets=(tavo tavo_gpu_bench tavo_gpu_tests)
if ! configure -DTAVO_TOOLS=ON -DTAVO_TESTS=ON; then
  skipped+=("tests labelled gpu: $(grep -m 1 -E 'Could NOT find|Could not find a package|not find' "$build/configure.log" || echo 'they cannot be configured')")
  targets=(tavo tavo_gpu_bench)
  rm -f "$build/CMakeCache.txt"
  if ! configure -DTAVO_TOOLS=OFF -DTAVO_TESTS=OFF; then
    cat "$build/configure.log"
    exit 1
  fi
fi

step "build ${targets[*]} with $jobs jobs"
if ! timeout -k 5 "$(within 530)" cmake --build "$build" -j "$jobs" --target "${targets[@]}" >"$build/build.log" 2>&1; then
  tail -40 "$build/build.log"
  exit 1
fi
tavo=$PWD/$build/src/tavo
"$tavo" --version

if [ "${#targets[@]}" -gt 2 ]; then
  step "tests labelled gpu"
  if ! TAVO_REQUIRE_GPU=1 timeout -k 5 "$(within 240)" ctest --test-dir "$build" -L '^gpu$' -j 4 --no-tests=error --output-on-failure --timeout 200 | tail -60; then
    failed+=("tests labelled gpu")
  fi
fi

step "whole runs, CPU against GPU"
if command -v python3 >/dev/null; then
  timeout -k 5 "$(within 240)" python3 scripts/gpu_parity.py "$tavo" || failed+=("whole runs")
else
  skipped+=("whole runs: no python3")
fi

# Small enough for the tools' slowness, with every kernel: tables and occupied cells, planes, tiles and scores, fits. A
# line each: what the environment adds, and the options.
sanitized_runs() {
  local cv="--in data --measure ba --cv 3"
  local complete="--in complete --measure tau-c --cv 3"
  local fit="--in data --covariate covariates --iter 3 --regression logistic"
  local line="--in traits --covariate covariates --regression linear"
  local kernel
  echo "TAVO_GPU_SEARCH=threads $cv --order 1-4"
  for kernel in popcount mma-b1 mma-u8; do
    # With some missing genotypes, and with none: both shapes of the tiles.
    echo "TAVO_GPU_SEARCH=$kernel $cv --order 2-4"
    echo "TAVO_GPU_SEARCH=$kernel $complete --order 2-4"
  done
  for kernel in "--order 7-8" "--order 1-3 --missing mc" "--order 1-3 --score scores" "--order 5 --score scores" \
    "--order 2 --mode 0"; do
    echo "A=1 $cv $kernel"
  done
  echo "A=1 $line"
  echo "A=1 $line --precision double"
  for kernel in "" "--order 2" "--order 2 --distinct 1"; do
    echo "A=1 $fit $kernel"
    echo "A=1 $fit $kernel --precision double"
  done
}

# One run in a folder of its own: sanitize_run TOOL WORK NUMBER ENVIRONMENT OPTIONS...
sanitize_run() {
  local tool=$1 work=$2 number=$3 environment=$4
  shift 4
  mkdir "$work/run$number"
  ln -s "$work"/{data,complete,scores,traits,covariates} "$work/run$number"
  cd "$work/run$number" || return 1
  env "$environment" timeout -k 5 "$(within 100)" compute-sanitizer --tool "$tool" --error-exitcode 9 "$tavo" --out result.csv \
    --thread 32 --block 8 --device cuda "$@" >log 2>&1
  local status=$?
  # A kernel that the GPU has not is refused before anything runs.
  if [ $status -ne 0 ] && ! grep -q "expected one of: threads" log; then
    echo "compute-sanitizer --tool $tool, $environment $*: status $status"
    tail -15 log
    return 1
  fi
}

# All runs under one tool, a few at a time.
sanitize() {
  local tool=$1 work status=0 number=0 run process
  local processes=()
  work=$(mktemp -d)
  python3 - "$work" <<'PYTHON'
import sys
sys.path.insert(0, "scripts")
import gpu_parity
gpu_parity.write_genotypes(sys.argv[1] + "/data", 90, 12, 0.05, 1)
gpu_parity.write_genotypes(sys.argv[1] + "/complete", 90, 40, 0, 1)
gpu_parity.write_scores(sys.argv[1] + "/scores", 90, 2)
gpu_parity.write_genotypes(sys.argv[1] + "/traits", 90, 12, 0.05, 1, quantitative=True)
gpu_parity.write_covariates(sys.argv[1] + "/covariates", 90, 2, 3)
PYTHON
  while read -r run; do
    number=$((number + 1))
    # shellcheck disable=SC2086
    (sanitize_run "$tool" "$work" $number $run) &
    processes+=($!)
    if [ ${#processes[@]} -ge 6 ]; then
      wait "${processes[0]}" || status=1
      processes=("${processes[@]:1}")
    fi
  done < <(sanitized_runs)
  for process in "${processes[@]}"; do
    wait "$process" || status=1
  done
  rm -rf "$work"
  return $status
}
if ! command -v compute-sanitizer >/dev/null || ! command -v python3 >/dev/null; then
  skipped+=("compute-sanitizer: not here")
elif ! compute-sanitizer --tool memcheck "$tavo" --version >"$build/sanitizer.log" 2>&1 ||
  grep -q "not supported" "$build/sanitizer.log"; then
  skipped+=("compute-sanitizer: it does not work here ($(grep -m 1 -i "support\|error" "$build/sanitizer.log"))")
else
  for tool in memcheck racecheck initcheck; do
    step "compute-sanitizer $tool"
    if sanitize "$tool"; then
      echo "clean"
    else
      failed+=("compute-sanitizer $tool")
    fi
  done
fi

step "bench"
timeout -k 5 "$(within 240)" "$build/bench/gpu/tavo_gpu_bench" || failed+=("bench")

step "done"
for what in "${skipped[@]}"; do
  echo "gpu-check: SKIPPED $what"
done
for what in "${failed[@]}"; do
  echo "gpu-check: FAILED $what"
done
if [ "${#failed[@]}" -ne 0 ]; then
  exit 1
elif [ "${#skipped[@]}" -ne 0 ]; then
  echo "gpu-check: INCOMPLETE: what ran has passed"
  exit 2
fi
echo "gpu-check: passed"
