#!/bin/sh
# Runs a corpus as a job array of Slurm's, a shard a task:
#
#     sbatch --array=1-64 corpus-array.sh /shared/parts --rules /shared/rules /shared/mail
#     corvane corpus merge -o before.db /shared/parts/part-*.db    # when all have ended
#
# A task that is run again, because it failed or the job was submitted once more, goes on where it was, or ends at once
# where its result is there. CORVANE names the command, corvane unless given.
set -eu
if [ $# -lt 2 ]; then
    echo "usage: sbatch --array=1-N corpus-array.sh PARTS ARGUMENT..., the arguments of 'corvane corpus run'" >&2
    exit 2
fi
: "${SLURM_ARRAY_TASK_ID:?is missing; submit this script with sbatch --array=1-N}"
: "${SLURM_ARRAY_TASK_MAX:?is missing; submit this script with sbatch --array=1-N}"
parts="$1"
shift
mkdir -p "$parts"
part="$parts/part-$SLURM_ARRAY_TASK_ID-of-$SLURM_ARRAY_TASK_MAX.db"
[ -e "$part" ] && exit 0
exec "${CORVANE:-corvane}" corpus run "$@" --shard "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_MAX" -o "$part"
