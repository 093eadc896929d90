#!/usr/bin/env bash
# Every C++ and CUDA file is formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h' '*.cu' '*.cuh' '*.inc' |
  xargs -0 clang-format --dry-run -Werror
echo "Formatting: clean"
