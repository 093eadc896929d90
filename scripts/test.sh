#!/usr/bin/env bash
# Installs what is missing, builds everything with warnings as errors, and runs the checks and all tests.
#   scripts/test.sh          the dev build
#   scripts/test.sh asan     another preset: asan, tsan
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-dev}

scripts/install_dependencies.sh tests
if [ "$preset" = dev ]; then
  scripts/check_format.sh
  scripts/check_includes.sh
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -- --quiet
# What has just been installed must be there: no test that needs it may be skipped.
TAVO_REQUIRE_TOOLS=1 ctest --preset "$preset" --progress
