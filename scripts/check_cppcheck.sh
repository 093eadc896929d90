#!/usr/bin/env bash
# cppcheck over the programs and the fuzz targets; scripts/cppcheck-suppressions.txt says what it may not complain about.
set -euo pipefail
cd "$(dirname "$0")/.."
# Its findings about a file are kept until the file changes.
mkdir -p build/cppcheck
git ls-files --cached --others --exclude-standard -- 'util/*.cpp' 'lib/*.cpp' 'device/*.cpp' 'cpu/*.cpp' 'cluster/*.cpp' 'src/*.cpp' 'tools/*.cpp' \
  'report/*.cpp' 'fuzz/*.cpp' >build/cppcheck.files
cppcheck --quiet -j "$(nproc)" --std=c++20 --language=c++ -I . --enable=warning,performance,portability,style --inline-suppr \
  --suppress=missingIncludeSystem --suppressions-list=scripts/cppcheck-suppressions.txt --cppcheck-build-dir=build/cppcheck \
  --error-exitcode=1 --file-list=build/cppcheck.files
echo "cppcheck: clean ($(wc -l <build/cppcheck.files) files)"
