#!/usr/bin/env bash
# Runs examples/cluster/search.slurm with stand-ins for srun and scontrol: mpirun, and a note of what was asked. The
# signal before the time limit leaves a checkpoint and asks for the queue; the same script then ends the search.
#   run_batch_script.sh SCRIPT TAVO-FOLDER SIMULATE-FOLDER MPIRUN
set -euo pipefail
script=$(realpath "$1") tavo=$(realpath "$2") simulate=$(realpath "$3") mpirun=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir bin
cat >bin/srun <<END
#!/usr/bin/env bash
while [[ \$1 == --* ]]; do shift; done
# As srun does, and not mpirun, which does more: the signal goes to every rank.
"$mpirun" -n 2 --bind-to none "\$@" >run.log &
trap 'kill -TERM \$(cat /proc/\$!/task/\$!/children)' TERM
wait \$! || { trap '' TERM; wait \$!; }
END
printf '#!/usr/bin/env bash\necho "$@" >requeue\n' >bin/scontrol
chmod +x bin/srun bin/scontrol
export PATH=$work/bin:$tavo:$PATH SLURM_CPUS_PER_TASK=1 SLURM_JOB_ID=7
export OMPI_MCA_rmaps_base_oversubscribe=1 OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1

# Slow enough that there is something left to do when the first checkpoint stands.
"$simulate/tavo-simulate" --out data.tavo --samples 400 --snps 3000 --seed 1
TAVO_SIMD=scalar TAVO_CHECKPOINT_SECONDS=0 bash "$script" data.tavo result.csv &
job=$!
for ((i = 0; i < 600; ++i)); do
  [ ! -e result.csv.checkpoint ] || break
  sleep 0.02
done
kill -TERM "$job"
if wait "$job"; then
  echo "the job has ended before the signal, or hides that it was stopped"
  exit 1
fi
[ "$(cat requeue)" = "requeue 7" ]
[ -e result.csv.checkpoint ] && [ ! -e result.csv ]

bash "$script" data.tavo result.csv
grep -q '^Rank,' result.csv
[ ! -e result.csv.checkpoint ]
