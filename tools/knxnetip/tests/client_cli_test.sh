#!/usr/bin/env bash
# knxnetip-client ($1) against knxnetip-test-server ($2) on an ephemeral
# loopback port: its commands, their output and the calls they cause.
set -uo pipefail
client=$1
server=$2
work=$(mktemp -d)
trap 'kill "$pid" 2>/dev/null; rm -rf "$work"' EXIT
"$server" knx.friendlyName=cli 127.0.0.1:0 >"$work/server.out" 2>&1 &
pid=$!
for _ in $(seq 50); do
  grep -q "serving on" "$work/server.out" && break
  sleep 0.1
done
address=$(sed -n 's/^knxnetip: serving on //p' "$work/server.out")
failed=0
expect() { # expect EXPECTED_OUTPUT ARGS...: runs the client, compares stdout and stderr
  local expected=$1 actual
  shift
  actual=$("$client" --timeout 2000 "$@" "$address" 2>&1)
  if [ "$actual" != "$expected" ]; then
    printf 'FAIL: knxnetip-client %s\n  expected: %s\n  actual:   %s\n' "$*" "$expected" "$actual"
    failed=1
  fi
}
expect "0000000b" read 0 71 1 2
expect "00" read 11 69
expect "knxnetip-client: non-existent property or object" read 11 99
expect "" write 11 60 192.168.7.7
expect "" write 11 55 01
expect "knxnetip-client: read-only" write 11 57 192.168.7.7
expect "" reset
expect "c0a80707" read 11 57
"$client" describe "$address" | grep -q "^current: 192.168.7.7 mask 255.255.255.0" ||
  { echo "FAIL: describe after reset"; failed=1; }
"$client" search "$address" | grep -q "^name: cli$" || { echo "FAIL: search"; failed=1; }
"$client" read 11 "$address" >/dev/null 2>&1 && { echo "FAIL: read without a PID"; failed=1; }
kill -TERM "$pid"
wait "$pid"
expected_calls="call: SetConfiguredIpAddress 3232237319
call: SetIpAssignmentMethods 1
call: CommitConfiguration"
if [ "$(grep '^call:' "$work/server.out")" != "$expected_calls" ]; then
  echo "FAIL: calls into the manager:"
  cat "$work/server.out"
  failed=1
fi
[ "$failed" -eq 0 ] && echo "ok"
exit "$failed"
