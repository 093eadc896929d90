#!/usr/bin/env bash
# Builds the Debian package from a build folder, lists it, unpacks it into a folder of its own, and runs the programs from
# there.
#   scripts/check_package.sh                    the release build, which is made if it is missing
#   scripts/check_package.sh BUILD              another build folder
#   scripts/check_package.sh BUILD --install    what cmake --install puts in place, without a package
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "check_package: $*" >&2
  exit 1
}

if [ "$build" = build/release ]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -- --quiet
fi
if [ "${2:-}" = --install ]; then
  cmake --install "$build" --prefix "$work/root/usr" >/dev/null
else
  command -v dpkg-shlibdeps >/dev/null || fail "dpkg-shlibdeps is missing (package dpkg-dev)"
  cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/package" >"$work/cpack.log" ||
    { cat "$work/cpack.log"; fail "cpack failed"; }
  package=$(ls "$work"/package/*.deb)
  dpkg-deb --info "$package" | tee "$work/info"
  dpkg-deb --contents "$package"
  grep -q '^ Depends: .*libc6' "$work/info" || fail "the package names no libraries"
  dpkg-deb -x "$package" "$work/root"
fi

root=$work/root/usr
programs=$(cd "$root/bin" && echo *)
for program in $programs; do
  "$root/bin/$program" --version >"$work/version"
  head -n 1 "$work/version" | grep -qx "$program [0-9.]*" || fail "$program --version: $(cat "$work/version")"
  page=$root/share/man/man1/$program.1
  for title in NAME SYNOPSIS DESCRIPTION OPTIONS EXAMPLES "EXIT STATUS"; do
    grep -qx "\.SH $title" "$page" || fail "the manual page of $program has no section $title"
  done
  # Whatever option --help names is in the page and in the completion, and nothing else is.
  "$root/bin/$program" --help | grep -oE '^  --.*' | grep -oE '(^  |, )--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort -u >"$work/options"
  sed -n '/^\.SH OPTIONS/,/^\.SH EX/p' "$page" | grep '^\.B ' | sed 's/\\//g' |
    grep -oE '(^\.B |, )--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort -u >"$work/page"
  cmp "$work/options" "$work/page" || fail "the manual page of $program lacks options"
  bash -c '
    source "$1"
    COMP_WORDS=("$2" --) COMP_CWORD=1
    "_${2//-/_}"
    printf "%s\n" "${COMPREPLY[@]}" | sort -u' complete "$root/share/bash-completion/completions/$program" "$program" \
    >"$work/completed"
  cmp "$work/options" "$work/completed" || fail "the completion of $program lacks options"
done
bash -c '
  source "$1"
  COMP_WORDS=(tavo --measure tau) COMP_CWORD=2
  _tavo
  [ "${COMPREPLY[*]}" = "tau-b tau-c" ]
  cd "$2"
  touch "a file.tavo"
  COMP_WORDS=(tavo --in a) COMP_CWORD=2
  _tavo
  [ "${COMPREPLY[0]}" = "a file.tavo" ]' complete "$root/share/bash-completion/completions/tavo" "$work" ||
  fail "the completion of tavo does not complete values and files"

# Release builds are hardened (cmake/flags.cmake): what the flags ask for stands in the programs.
check_hardened() {
  local program=$1
  readelf -Whld "$program" >"$work/elf"
  grep -qE '^ +Type: +DYN' "$work/elf" || fail "$program stands at a fixed address"
  grep -q GNU_RELRO "$work/elf" || fail "$program has no relocations that become read-only"
  grep -q 'Flags:.* NOW' "$work/elf" || fail "$program binds functions only when they are called"
  grep -qE 'GNU_STACK .* RW +0x' "$work/elf" || fail "$program has a stack that can be executed"
  readelf -W --dyn-syms "$program" >"$work/symbols"
  grep -q ' __stack_chk_fail' "$work/symbols" || fail "$program does not watch its stack"
  grep -qE ' __[a-z]+_chk(@| |$)' "$work/symbols" || fail "$program calls no checked functions of the C library"
}
if grep -q '^CMAKE_BUILD_TYPE:[A-Z]*=Release' "$build/CMakeCache.txt" &&
  ! grep -q '^TAVO_SANITIZE:[A-Z]*=.' "$build/CMakeCache.txt"; then
  hardened=0
  for program in $programs; do
    if readelf -h "$root/bin/$program" >/dev/null 2>&1; then
      check_hardened "$root/bin/$program"
      hardened=$((hardened + 1))
    fi
  done
  [ "$hardened" -ge 5 ] || fail "only $hardened of the programs were looked at for hardening"
  echo "Hardening: read-only relocations, any address, guarded stacks and checked functions in $hardened programs"
fi

# A tiny run, end to end.
(
  cd "$work"
  PATH=$root/bin:$PATH
  tavo-simulate --out data.tavo --samples 400 --snps 20 --model at=5+9,maf=0.4,heritability=0.3 >/dev/null
  tavo --in data.tavo --out result.csv --order 2 --measure ba --thread 8 --block 8 --device cpu >/dev/null 2>&1
  grep -q '^1,( snp5 snp9 ),' result.csv
) || fail "the tiny run did not find its interaction"
for file in copyright README.md docs/formats.md examples/README.md; do
  [ -e "$root/share/doc/tavo/$file" ] || fail "share/doc/tavo/$file is missing"
done
echo "Package: $(echo "$programs" | wc -w) programs run from where they were installed"
