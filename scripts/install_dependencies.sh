#!/usr/bin/env bash
# Installs what the build needs on Debian 12, as root or with sudo, and only what is missing.
#   scripts/install_dependencies.sh          the program and its tools
#   scripts/install_dependencies.sh tests    also what the tests and checks need
set -euo pipefail

packages=(g++ cmake ninja-build zlib1g-dev libboost-math-dev libhts-dev)
if [ "${1:-}" = tests ]; then
  packages+=(libgtest-dev libbenchmark-dev nlohmann-json3-dev clang-format clang-tidy clang-14 libclang-rt-14-dev cppcheck git dpkg-dev file plink1.9 bcftools chromium r-base-core
    python3 libopenmpi-dev openmpi-bin)
fi
# npm comes with other distributions of node, too.
command -v npm >/dev/null || packages+=(nodejs npm)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
      echo "These packages are missing, and installing them needs root or sudo: ${missing[*]}" >&2
      exit 1
    }
    as_root=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
    >/dev/null
fi

# The plotting library of tavo-report's pages, in the version of the lockfile.
report=$(cd "$(dirname "$0")/../report" && pwd)
if [ ! "$report/node_modules/.package-lock.json" -nt "$report/package-lock.json" ]; then
  echo "Installing: the plotting library of tavo-report (npm ci)"
  if ! npm ci --prefix "$report" --silent; then
    echo "npm ci failed: everything is built, but tavo-report will make no pages" >&2
    [ "${1:-}" != tests ] || exit 1
  fi
fi
