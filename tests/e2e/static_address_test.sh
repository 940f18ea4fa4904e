#!/usr/bin/env bash
# End to end, inside a private network namespace with a veth pair: the add-on in
# knx-addon-host commits a static address to the simulated device service, which
# applies it to one end of the pair; the add-on's next current-value query reads
# the new address from the kernel, and the state file keeps it across a restart
# of the service. Skipped (exit 77) where no network namespace can be used
# (without root, or in a chroot).
# Usage: static_address_test.sh HOST DEVICE_SERVICE
set -euo pipefail
host=$1 service=${2:-}
scripts=$(cd "$(dirname "$0")/../../scripts/lib" && pwd)
. "$scripts/netns.sh"
. "$scripts/processes.sh"
skip() {
  echo "SKIPPED: $*"
  exit 77
}
[ -n "$service" ] || skip "waits for the simulated device service (tools/device-service)"

ns=knx-e2e-$$
work=$(mktemp -d)
socket=$work/device-stack.sock
export VELBOR_DEVICE_STACK_SOCKET=$socket
state=$work/state.json
service_pid=
stop_service() {
  [ -n "$service_pid" ] || return 0
  kill -TERM "$service_pid" 2>/dev/null || true
  local status=0
  wait "$service_pid" || status=$?
  service_pid=
  return "$status"
}
cleanup() {
  stop_service || true
  ip netns del "$ns" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM
fail() {
  echo "FAIL: $*"
  exit 1
}
in_ns() { ip netns exec "$ns" "$@"; }

reason=$(netns_create "$ns") || skip "$reason"
in_ns ip link add knx0 type veth peer name knx1
for link in lo knx0 knx1; do in_ns ip link set "$link" up; done

start_service() {
  # ip netns exec replaces itself with the service, so $! is the service.
  ip netns exec "$ns" "$service" --socket "$socket" --state "$state" --apply-to knx0 \
    --resolv-conf "$work/resolv.conf" >>"$work/service.log" 2>&1 &
  service_pid=$!
  wait_for_socket "$service_pid" "$socket" 10 "$work/service.log" || fail "the service did not start"
}
# Runs the commands given on standard input; leaves the output in $work/out.
run_host() {
  echo "ipconfig.interfaceName=knx0" >"$work/host.properties"
  in_ns "$host" --config "$work/host.properties" --log-level WARN >"$work/out" ||
    fail "host exit code $?"
}
expect_lines() {
  for line in "$@"; do
    grep -qx -- "$line" "$work/out" || fail "no line '$line' in: $(cat "$work/out")"
  done
}

start_service
run_host <<'EOF'
current ip
set methods 1
set ip 10.77.0.50
set netmask 255.255.0.0
set gateway 10.77.0.1
set dns1 10.77.0.1
set dns2 10.77.0.2
commit
current ip
current netmask
current gateway
EOF
[ "$(head -n 1 "$work/out")" != "current ip = 10.77.0.50" ] ||
  fail "the interface had the new address before the commit"
expect_lines "commit done" "current ip = 10.77.0.50" "current netmask = 255.255.0.0" \
  "current gateway = 10.77.0.1"
in_ns ip -4 addr show dev knx0 | grep -q 'inet 10\.77\.0\.50/16' ||
  fail "knx0 lacks 10.77.0.50/16: $(in_ns ip -4 addr show dev knx0)"

stop_service || fail "the service did not exit cleanly on SIGTERM"
[ ! -e "$socket" ] || fail "the service left its socket behind"
grep -Eq '"IpAddress": *"10\.77\.0\.50"' "$state" || fail "state file: $(cat "$state")"

start_service
run_host <<<"get ip"
expect_lines "configured ip = 10.77.0.50"
grep -Eq '"IpAddress": *"10\.77\.0\.50"' "$state" || fail "state file: $(cat "$state")"
echo "end-to-end static address change passed"
