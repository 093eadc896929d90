#!/usr/bin/env bash
# Whole processes side by side: this program and PLINK on the same simulated data. Installs what is missing, builds the
# release preset, prints tables in Markdown. An otherwise idle machine gives the best figures; the ratios hold on any.
#   bench/compare.sh [search|scores|regression|scaling|growth|memory|permutations ...]      all when none is named
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_dependencies.sh
missing=()
for package in plink1.9 plink2 python3; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}" >&2
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
cmake --preset release >/dev/null
cmake --build --preset release --target tavo tavo-score tavo-simulate -- --quiet
exec python3 bench/compare.py build/release "$@"
