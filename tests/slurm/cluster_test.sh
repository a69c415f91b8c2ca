#!/usr/bin/env bash
# Starts a private Slurm cluster with scripts/slurm/cluster and splits a batch
# of 20 PDFs on it: vellira-batch plan, then scripts/slurm/submit --wait with
# four shards as an array job and the finish after them. Every output, report
# and status must be byte for byte what vellira-batch split makes of the same
# list on one machine. The list has a row whose parameters file switches to
# sequential names for the rows after it, and two rows appending to the same
# outputs. Then, with a stand-in for vellira-batch, a failing shard must make
# submit fail, show that shard's log and keep the finish from running. Stops
# the cluster and checks that none of its daemons is left.
#
#   cluster_test.sh VELLIRA_BATCH VELLIRA_MAKE_SAMPLE
#
# The cluster lives in ${TMPDIR:-/tmp}/vellira-slurm-test-UID, so that a run
# that was killed is cleaned up by the next. Exits 77 (skipped) when Slurm
# cannot run here, as the cluster script says.
set -euo pipefail
slurm=$(cd "$(dirname "$0")/../../scripts/slurm" && pwd)
program=$(realpath -- "$1")
sample=$(realpath -- "$2")
base=${TMPDIR:-/tmp}/vellira-slurm-test-$(id -u)
cluster=$base/cluster shared=$base/shared
started=$SECONDS

mkdir -p "$base"
exec 9>"$base/lock"
flock -w 120 9 || {
    echo "FAILED: another run holds $base/lock"
    exit 1
}

failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

status=0
start_output=$("$slurm/cluster" start "$cluster" 9>&-) || status=$?
if [ $status -eq 77 ]; then
    echo "skipped: the cluster could not start"
    exit 77
fi
[ $status -eq 0 ] || {
    echo "FAILED: cluster start exited with $status"
    exit 1
}
trap '"$slurm/cluster" stop "$cluster" 9>&-' EXIT
eval "$start_output"
[ -f "${SLURM_CONF:-}" ] || fail "cluster start gave no SLURM_CONF: $start_output"

rm -rf "$shared"
mkdir -p "$shared"
export XDG_CONFIG_HOME=$shared/config

# The batch: 20 statement runs of 21 to 40 pages, a list with its own
# parameters files.
batch=$shared/batch
mkdir -p "$batch"
for i in $(seq -w 1 20); do "$sample" "$batch/s$i.pdf" --pages $((20 + 10#$i)) --every 5 >/dev/null; done
printf 'EXTRACT;Sequential Number \r\n' >"$batch/sequence.pcs"
printf 'EXTRACT;Next word as filename \r\nALWAYSAPPEND;1 \r\nPREFIXFILENAME;joined_ \r\n' >"$batch/append.pcs"
printf 'ALWAYSAPPEND;0 \r\nPREFIXFILENAME;[FILETITLE]_ \r\n' >"$batch/named.pcs"
for i in $(seq -w 1 20); do
    case $i in 06) params=sequence.pcs ;; 11) params=append.pcs ;; 13) params=named.pcs ;; *) params= ;; esac
    echo "+$batch/s$i.pdf|${params:+$batch/$params}"
done >"$batch/run.lst"
options=(--list "$batch/run.lst" --set "OUTPUTDIR=$batch/out" --set REPORTOPTIONSTXT=1 --set REPORTOPTIONSCSV=1
    --set "PREFIXFILENAME=[FILETITLE]_")

# Every file the run made, by name, with a digest of its bytes (a report
# without its first line, which holds the time it was written).
made() {
    (cd "$batch" && find out -type f && ls ./*_report.*) | sort | while read -r file; do
        case $file in
        *_report.*) digest=$(sed 1d "$batch/$file" | sha256sum) ;;
        *) digest=$(sha256sum <"$batch/$file") ;;
        esac
        echo "$file ${digest%% *}"
    done
}

(cd "$batch" && "$program" split -q "${options[@]}" >"$shared/split.statuses" 2>"$shared/split.messages") ||
    fail "split exited with $?"
made >"$shared/split.made"
rm -rf "$batch/out" "$batch"/*_report.*

(cd "$batch" && "$program" plan -q -o plan.json "${options[@]}") || fail "plan exited with $?"
if ! (cd "$batch" && VELLIRA_BATCH=$program timeout 150 "$slurm/submit" --wait --timeout 140 plan.json 4 . 9>&-) \
    >"$shared/submit.out" 2>&1; then
    cat "$shared/submit.out"
    fail "submit --wait failed for the batch"
fi
made >"$shared/cluster.made"
diff "$shared/split.made" "$shared/cluster.made" || fail "the cluster's files differ from split's"
[ "$(wc -l <"$shared/split.made")" -gt 150 ] || fail "split made only $(wc -l <"$shared/split.made") files"
grep -q '^out/s06_000001.pdf ' "$shared/split.made" || fail "no sequential names"
grep -q '^out/joined_100000.pdf ' "$shared/split.made" || fail "no appended outputs"
for shard in 1 2 3 4; do
    grep -q 'file(s) written' "$batch"/slurm-logs/apply-*_"$shard".log || fail "shard $shard wrote nothing"
done
# The finish prints the statuses as split does.
grep -P '\t' "$batch"/slurm-logs/finish-*.log >"$shared/cluster.statuses" || true
diff "$shared/split.statuses" "$shared/cluster.statuses" || fail "the finish's statuses differ from split's"

# A stand-in for vellira-batch that fails the shard named in
# VELLIRA_TEST_FAIL, which reaches the jobs through the submitter's
# environment.
echo '{}' >"$shared/plan.json"
cat >"$shared/stand-in" <<'EOF'
#!/bin/bash
echo "begin $*" >>record
sleep 0.3
if [ -n "${VELLIRA_TEST_FAIL:-}" ] && [ "${4:-}" = "$VELLIRA_TEST_FAIL" ]; then
    echo "shard $4 broke" >&2
    exit 3
fi
echo "end $*" >>record
EOF
chmod +x "$shared/stand-in"

run_submit() {
    local name=$1
    mkdir -p "$shared/$name"
    cp "$shared/plan.json" "$shared/$name/plan.json"
    (cd "$shared/$name" && VELLIRA_BATCH=../stand-in timeout 90 "$slurm/submit" --wait --timeout 80 plan.json 4 . 9>&-)
}

# Shard 2 fails: submit fails, shows its log, and the finish never runs.
status=0
VELLIRA_TEST_FAIL=2/4 run_submit bad >"$shared/bad.out" 2>&1 || status=$?
record=$shared/bad/record
touch "$record"
[ $status -eq 1 ] || fail "submit --wait exited with $status when shard 2/4 failed"
if ! grep -q 'shard 2/4 failed' "$shared/bad.out" || ! grep -qxF 'shard 2/4 broke' "$shared/bad.out"; then
    fail "submit did not show the failed shard's log"
fi
! grep -q -- '--finish' "$record" || fail "the finish ran although shard 2/4 failed"
[ "$(grep -c '^end' "$record" || true)" = 3 ] || fail "the other three shards did not all end"
[ $failures -eq 0 ] || cat "$shared/bad.out"

trap - EXIT
"$slurm/cluster" stop "$cluster" 9>&- || fail "cluster stop failed"
# Daemons that have exited may linger a moment as zombies until init reaps them.
processes=$(ps -eo stat=,args=)
left=$(awk '$1 !~ /^Z/' <<<"$processes" | grep -F -- "$cluster" || true)
[ -z "$left" ] || fail "daemons left after cluster stop: $left"

echo "cluster start, two submissions and stop took $((SECONDS - started))s"
if [ $failures -gt 0 ]; then
    echo "$failures check(s) failed; the cluster's logs are in $cluster/log"
    exit 1
fi
rm -rf "$shared"
echo "passed"
