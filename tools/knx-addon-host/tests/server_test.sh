#!/usr/bin/env bash
# knx-addon-host serving the add-on over KNXnet/IP, with the device service on a
# seeded state: knxnetip-client reads the settings, writes a static address and
# resets; the values read back and the service's state file hold the new
# address. SIGTERM ends the run with exit 0 after the add-on's shut-down.
# Usage: server_test.sh HOST CLIENT SERVICE
set -uo pipefail
host=$1 client=$2 service=$3
. "$(dirname "$0")/../../../scripts/lib/processes.sh"
work=$(mktemp -d)
pids=()
trap 'stop_processes "${pids[@]}"; rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*"
  exit 1
}

export VELBOR_DEVICE_STACK_SOCKET=$work/service.sock
cat >"$work/state.json" <<'JSON'
{"restartCount": 0, "settings": {"Dhcp": "true", "IpAddress": "10.1.2.3",
 "SubnetMask": "255.255.0.0", "DefaultGateway": "10.1.0.1", "NameServer": "10.1.0.1",
 "NameServer2": "10.1.0.2"}}
JSON
"$service" --socket "$VELBOR_DEVICE_STACK_SOCKET" --state "$work/state.json" 2>"$work/service.log" &
pids+=($!)
wait_for_socket $! "$VELBOR_DEVICE_STACK_SOCKET" 10 "$work/service.log" || exit 1

printf '%s\n' ipconfig.interfaceName=lo knx.individualAddress=1.1.10 \
  "knx.friendlyName=server test" >"$work/host.properties"
"$host" --config "$work/host.properties" --knxnetip 127.0.0.1:0 >"$work/out" 2>"$work/err" &
host_pid=$!
pids+=("$host_pid")
for _ in $(seq 200); do
  grep -q '^knxnetip: serving on ' "$work/out" && break
  kill -0 "$host_pid" 2>/dev/null || break
  sleep 0.05
done
address=$(sed -n 's/^knxnetip: serving on //p' "$work/out")
[ -n "$address" ] || fail "no ready line; stderr: $(cat "$work/err")"

knx() { "$client" --timeout 2000 "$@" "$address" 2>&1; }
# expect_reads PID=HEX...: the parameter object's properties
expect_reads() {
  local pair
  for pair in "$@"; do
    [ "$(knx read 11 "${pair%=*}")" = "${pair#*=}" ] ||
      fail "read 11 ${pair%=*}: got '$(knx read 11 "${pair%=*}")', expected '${pair#*=}'"
  done
}

knx describe >"$work/describe" || fail "describe: $(cat "$work/describe")"
for line in "name: server test" "individual address: 1.1.10" \
  "configured: 10.1.2.3 mask 255.255.0.0 gateway 10.1.0.1 capabilities 6 methods 4"; do
  grep -qxF "$line" "$work/describe" || fail "describe: no '$line' in: $(cat "$work/describe")"
done
expect_reads 60=0a010203 61=ffff0000 62=0a010001
for write in "55 01" "60 192.168.1.50" "61 255.255.255.0" "62 192.168.1.254"; do
  # shellcheck disable=SC2086 # PID and value
  [ -z "$(knx write 11 $write)" ] || fail "write 11 $write: $(knx write 11 $write)"
done
[ -z "$(knx reset)" ] || fail "reset"
expect_reads 55=01 60=c0a80132 61=ffffff00 62=c0a801fe
for setting in '"IpAddress": *"192\.168\.1\.50"' '"Dhcp": *"false"'; do
  grep -Eq "$setting" "$work/state.json" || fail "state file: $(cat "$work/state.json")"
done

kill -TERM "$host_pid"
wait "$host_pid"
status=$?
[ "$status" -eq 0 ] || fail "exit code $status after SIGTERM: $(cat "$work/err")"
grep -qx 'INFO  KnxStack.IpConfigFactory - Shutdown() ...' "$work/err" ||
  fail "no add-on shutdown in: $(cat "$work/err")"
[ "$(wc -l <"$work/out")" -eq 1 ] || fail "more than the ready line: $(cat "$work/out")"
echo "server mode checks passed"
