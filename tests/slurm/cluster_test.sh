#!/usr/bin/env bash
# Starts a private Slurm cluster with scripts/slurm/cluster and sends a plan of
# four shards through scripts/slurm/submit --wait, with a stand-in for
# vellira-batch that records how it was called. Checks that each shard ran
# once with its own --shard I/4, and the finish once, after every shard had
# ended; then that a failing shard makes submit fail, shows that shard's log
# and keeps the finish from running. Stops the cluster and checks that none of
# its daemons is left.
#
# The cluster lives in ${TMPDIR:-/tmp}/vellira-slurm-test-UID, so that a run
# that was killed is cleaned up by the next. Exits 77 (skipped) when Slurm
# cannot run here, as the cluster script says.
set -euo pipefail
slurm=$(cd "$(dirname "$0")/../../scripts/slurm" && pwd)
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
echo '{}' >"$shared/plan.json"
# Records its arguments when it begins and ends; fails the shard named in
# VELLIRA_TEST_FAIL, which reaches the jobs through the submitter's
# environment. Shard 1 outlasts the others, so that a finish started as soon
# as a CPU is free, rather than after every shard, begins before it ends.
cat >"$shared/stand-in" <<'EOF'
#!/bin/bash
echo "begin $*" >>record
if [ "${4:-}" = 1/4 ]; then sleep 1.5; else sleep 0.3; fi
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

# Four shards and the finish.
if ! run_submit good >"$shared/good.out" 2>&1; then
    cat "$shared/good.out"
    fail "submit --wait failed for four good shards"
fi
record=$shared/good/record
plan=$shared/good/plan.json
touch "$record"
for shard in 1 2 3 4; do
    count=$(grep -cxF "begin apply $plan --shard $shard/4" "$record" || true)
    [ "$count" = 1 ] || fail "shard $shard/4 began $count times"
done
[ "$(grep -c '^begin' "$record" || true)" = 5 ] || fail "not four shards and one finish"
finish_line=$(grep -nxF "begin apply $plan --finish" "$record" | cut -d: -f1 || true)
last_shard_end=$(grep -n -- '--shard' "$record" | grep ':end ' | tail -n 1 | cut -d: -f1 || true)
if [ -z "$finish_line" ] || [ -z "$last_shard_end" ] || [ "$finish_line" -lt "$last_shard_end" ] ||
    [ "$(grep -c -- '^end .*--shard' "$record" || true)" != 4 ]; then
    fail "the finish did not begin after all four shards had ended"
fi
[ $failures -eq 0 ] || cat "$record"

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
