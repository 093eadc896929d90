#!/usr/bin/env bash
# Random whole runs of the program against the naive reference (tests/campaign): every instruction set at hand, and a CUDA
# device where there is one.
#   scripts/campaign.sh N              N cases of a new seed
#   scripts/campaign.sh N SEED         the same cases again
#   scripts/campaign.sh 1 SEED:CASE    one of them
# Each failure is printed with its seed, case and command; its files are kept. TAVO_CAMPAIGN_PRESET=asan takes another build.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  sed -n '2,6s/^# //p' "$0" >&2
  exit 2
fi
cases=$1
seed=${2:-$(($(date +%s) % 1000000000))}
first=0
if [[ $seed == *:* ]]; then
  first=${seed#*:}
  seed=${seed%:*}
fi
preset=${TAVO_CAMPAIGN_PRESET:-dev}
if [ ! -f "build/$preset/build.ninja" ]; then
  cmake --preset "$preset" >/dev/null
fi
cmake --build --preset "$preset" --target tavo_campaign -- --quiet
folder=$(mktemp -d "${TMPDIR:-/tmp}/tavo-campaign-XXXXXX")
echo "seed $seed, cases $first to $((first + cases - 1))"

# Two processes side by side: one takes every second case.
program=build/$preset/tests/campaign/tavo_campaign
"$program" $(((cases + 1) / 2)) "$seed" "$first" 2 "$folder" >"$folder/first.log" &
one=$!
"$program" $((cases / 2)) "$seed" $((first + 1)) 2 "$folder" >"$folder/second.log" &
two=$!
status=0
wait $one || status=1
wait $two || status=1
cat "$folder/first.log" "$folder/second.log"
if [ $status = 0 ]; then
  rm -r "$folder"
  echo "Campaign: clean, $cases cases of seed $seed in $SECONDS s"
else
  echo "Campaign: FAILED, see $folder" >&2
fi
exit $status
