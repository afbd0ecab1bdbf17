#!/usr/bin/env bash
# Shows a plugin and an agent in conversation: installs what is missing, builds, runs both for a few seconds in
# a private directory, prints who told what to whom with the verdict of the receiver, then what the log holds.
# Exits with 1 when anything that must happen has not happened.
#
#   scripts/demo.sh [--version v1|v2] [--rounds N]
#
# For the tests of the demo:
#   --bin-dir DIR   run the programs in DIR; install and build nothing
#   --wrong-key     give the plugin another access key than the agent, which must make the demo fail
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

version=v2 rounds=5 bin='' wrong_key=''
while [ $# -gt 0 ]; do
  case "$1" in
    --version) version=${2-}; shift 2 || true ;;
    --rounds) rounds=${2-}; shift 2 || true ;;
    --bin-dir) bin=${2-}; shift 2 || true ;;
    --wrong-key) wrong_key=yes; shift ;;
    *) echo "usage: scripts/demo.sh [--version v1|v2] [--rounds N]" >&2; exit 2 ;;
  esac
done
case "$version" in v1 | v2) ;; *) echo "demo.sh: --version must be v1 or v2" >&2; exit 2 ;; esac
[[ "$rounds" =~ ^[1-9][0-9]{0,3}$ ]] || { echo "demo.sh: --rounds must be a number from 1 to 9999" >&2; exit 2; }

umask 077
work=$(mktemp -d /tmp/pluginsdk-demo.XXXXXX) # short: the path of a socket has at most 107 bytes
ring=$$
while [ -e "/dev/shm/LOG_Shm_$ring" ]; do ring=$((ring + 1)); done
trap 'rm -rf "$work"; rm -f "/dev/shm/LOG_Shm_$ring"' EXIT
trap 'exit 1' INT TERM HUP

# 1. Programs.
if [ -z "$bin" ]; then
  scripts/install-deps.sh
  # shellcheck source=scripts/build-env.sh
  source scripts/build-env.sh
  build=build/release
  mkdir -p "$build" 2>/dev/null && [ -w "$build" ] || build=$work/build # built as another user before
  echo "Building in $build"
  if ! { cmake --preset release -B "$build" && cmake --build "$build" --target demo -j "$JOBS"; } >"$work/build.log" 2>&1; then
    cat "$work/build.log" >&2
    exit 1
  fi
  bin=$build/examples/host_monitor
fi

# 2. Secrets, in files: a command line can be read by every user of the machine.
secret() { od -An -tx1 -N "$1" /dev/urandom | tr -d ' \n'; }
secret 24 >"$work/agent.key"
secret 16 >"$work/ticket"
if [ -n "$wrong_key" ]; then secret 24 >"$work/plugin.key"; else cp "$work/agent.key" "$work/plugin.key"; fi

# 3. A run that is killed while its log lines are only in shared memory.
crash_lines=20
crash_status=0
timeout 30 "$bin/host_monitor_plugin" --log-root "$work" --ring "$ring" --crash-after $crash_lines &
{ wait $! || crash_status=$?; } 2>/dev/null # the shell would announce the death that is meant to happen
cp "/dev/shm/LOG_Shm_$ring" "$work/segment" 2>/dev/null || : >"$work/segment"
echo
echo "A first run of the plugin was killed (status $crash_status). Its ring in shared memory outlives it:"
ls -l "/dev/shm/LOG_Shm_$ring" 2>/dev/null || echo "(nothing)"

# 4. The conversation. Longer runs get more time; nothing waits for ever.
limit=$((30 + rounds * 2))
common=(--socket "$work/socket" --version "$version" --ticket-file "$work/ticket" --rounds "$rounds"
  --timeout-ms $((limit * 1000)) --log-root "$work")
converse() {
  local plugin_status=0 agent_status=0
  timeout $((limit + 10)) "$bin/local_agent" "${common[@]}" --key-file "$work/agent.key" --outcome "$work/agent.outcome" &
  local agent=$!
  trap 'kill $agent 2>/dev/null || true' EXIT
  timeout $((limit + 10)) "$bin/host_monitor_plugin" "${common[@]}" --key-file "$work/plugin.key" \
    --outcome "$work/plugin.outcome" --ring "$ring" --local-command collectNow || plugin_status=$?
  wait $agent || agent_status=$?
  echo "plugin exit $plugin_status" >"$work/status"
  echo "agent exit $agent_status" >>"$work/status"
}
echo
echo "The conversation, API version $version. Each message is printed by its receiver, with the verdict:"
converse 2>&1 | tee "$work/transcript"

# 5. What the log holds.
logs=$work/logs
newest=$(find "$logs/host_monitor_plugin" -maxdepth 1 -name '*.log' 2>/dev/null | sort | tail -n 1 || true)
newest=${newest:-/dev/null}
special=$logs/host_monitor_plugin/special_logs/collectNow.log
sed -n '/recovering ring/,/recovered ring/p' "$newest" >"$work/recovered"
echo
echo "The log directory:"
(cd "$work" && find logs -type f -printf '  %8s bytes  %p\n' | sort -k 3) || true
echo
echo "The last lines of the plugin's log, with a masked credential:"
tail -n 8 "$newest" | cut -c 1-150 | sed 's/^/  /'
echo
echo "The special log that captured one command:"
sed 's/^/  /' "$special" 2>/dev/null || echo "  (nothing)"
echo
echo "What the killed run left in its ring, written to the log by the run after it:"
{ head -n 3 "$work/recovered"; echo "..."; tail -n 3 "$work/recovered"; } | sed 's/^/  /'

# 6. What must have happened.
proof=verified
[ "$version" = v2 ] || proof=unsigned
faults=0
fault() { echo "demo.sh: $1" >&2; faults=$((faults + 1)); }
expect() { grep -qxF -- "$1" "$2" 2>/dev/null || fault "missing: $1"; }

while read -r line; do
  expect "$line" "$work/agent.outcome"
done <<LIST
plugin -> agent notifyPluginUpdate $proof registered
plugin -> agent notifyPluginUpdate $proof renewed
plugin -> agent notifyPluginUpdate $proof changed
plugin -> agent notifyPluginState $proof host health,uptime,memory
plugin -> agent notifyPluginState $proof disk space
plugin -> agent notifyPluginMetric $proof host load1,memoryUsed
plugin -> agent notifyPluginMetric $proof disk diskUsed
plugin -> agent notifyPluginMetric $proof disk diskUsed,inodesUsed
plugin -> agent notifyPluginEvent $proof host measured
plugin -> agent notifyPluginEvent $proof host settingsChanged
plugin -> agent notifyPluginAlert $proof memoryHigh trigger
plugin -> agent notifyPluginAlert $proof memoryHigh resolve
plugin -> agent notifyPluginLocalCommand $proof host collectNow
plugin -> agent notifyPluginCommandAck $proof collectNow ACCEPTED
plugin -> agent notifyPluginCommandAck $proof collectNow ACKED
plugin -> agent notifyPluginCommandAck $proof setInterval ACKED
plugin -> agent notifyPluginCommandAck $proof selfDestruct REJECTED
plugin -> agent notifyPluginCommandAck $proof setInterval ERRORED
plugin -> agent notifyPluginCommandAck $proof setDetail ACKED
LIST
while read -r line; do
  expect "$line" "$work/plugin.outcome"
done <<LIST
agent -> plugin notifyPluginCommand $proof collectNow
agent -> plugin notifyPluginCommand $proof setInterval
agent -> plugin notifyPluginCommand $proof selfDestruct
agent -> plugin notifyPluginCommand $proof setDetail
agent -> plugin notifyPluginCommand refused untrusted
agent -> plugin notifyPluginAlarmUpdate $proof memoryHigh
agent -> plugin notifyAgentEvent noted online
LIST
expect "plugin exit 0" "$work/status"
expect "agent exit 0" "$work/status"
refused=$(cat "$work"/*.outcome | grep -c ' refused ' || true)
[ "$refused" -eq 1 ] || fault "$refused messages were refused instead of one"
measured=$(grep -cx "plugin -> agent notifyPluginEvent $proof host measured" "$work/agent.outcome" || true)
[ "$measured" -eq "$rounds" ] || fault "$measured rounds instead of $rounds"

[ "$crash_status" -eq 137 ] || fault "the first run ended with $crash_status instead of by SIGKILL"
[ ! -e "/dev/shm/LOG_Shm_$ring" ] || fault "the ring was not removed after its recovery"
[ ! -e "$work/socket" ] || fault "the socket was left behind"
diff <(seq $crash_lines) <(sed -n 's/.*| ring line \([0-9]*\):.*/\1/p' "$work/recovered") >/dev/null ||
  fault "lines of the killed run are missing in the log of the next"
grep -qx 'accessTicket: \*' "$newest" || fault "no masked credential in the log"
[ "$(grep -c 'collected all' "$special" 2>/dev/null)" = 1 ] || fault "the special log does not hold the command"
! grep -q 'round' "$special" 2>/dev/null || fault "the special log holds more than the command"

# No secret, and no digest that a signature was made of, in any place that log lines or output go to.
secrets=$(paste -sd '|' <(cat "$work/agent.key"; echo; cat "$work/plugin.key"; echo; cat "$work/ticket"; echo))
! grep -rqE "$secrets" "$logs" "$work/segment" "$work/transcript" || fault "a secret reached the log or the output"
! grep -rqwE '[0-9a-f]{40}' "$logs" "$work/segment" "$work/transcript" || fault "a digest reached the log or the output"

echo
[ $faults -eq 0 ] || { echo "demo.sh: $faults expectations were not met" >&2; exit 1; }
echo "All expected verdicts were seen; neither the access key nor the ticket is in any log."
