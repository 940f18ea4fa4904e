#!/usr/bin/env bash
# The demonstration's story on a real network (root only): the add-on in
# knx-addon-host reads the device's settings, commits a static address, reads
# it back in a fresh session, switches the device to DHCP and gets a lease and
# DNS server from dnsmasq, then performs a factory reset that deletes the
# application data and returns the device to DHCP. The device service applies
# every step to one end of a veth pair in a namespace of its own; dnsmasq
# serves DHCP and DNS on the other end.
# Usage: tests/e2e/network_story.sh [HOST DEVICE_SERVICE]
# Without arguments it installs what it needs and builds both programs with the
# default preset first.
set -euo pipefail
cd "$(dirname "$0")/../.."
if [ $# -eq 0 ]; then
  scripts/install-deps
  cmake --preset default >/dev/null
  cmake --build --preset default --target knx-addon-host velbor-device-service -j "$(nproc)" >/dev/null
  set -- build/default/tools/knx-addon-host/knx-addon-host \
    build/default/tools/device-service/velbor-device-service
fi
host=$(realpath "$1") service=$(realpath "$2")
. tests/e2e/network_env.sh
step() { printf '\n=== %s\n' "$*"; }
# Runs a host session on the device end with the commands on standard input.
session() {
  step "knx-addon-host: $1"
  (cd "$work" && in_dev "$host" --config "$work/host.properties" --log-level WARN) | tee "$work/out"
}
expect() {
  grep -qx -- "$1" "$work/out" || net_fail "no line '$1'"
}
show_device() {
  echo "--- $dev_if: $(dev_addresses | tr '\n' ' ')"
  echo "--- $(in_dev ip -4 route show default)"
  echo "--- resolver file:"
  sed 's/^/    /' "$resolver"
}

net_setup
echo "factoryreset.applicationData=app-data" >>"$work/host.properties"
step "dnsmasq on $peer_if (10.88.0.1) in $peer_ns, the device service on $dev_if in $dev_ns"
net_start_server
net_start_service
show_device

session "read the device's settings, commit a static address" <<'EOF'
get methods
get ip
current ip
set methods 1
set ip 10.88.0.50
set netmask 255.255.255.0
set gateway 10.88.0.1
set dns1 10.88.0.1
set dns2 0.0.0.0
commit
current ip
EOF
expect "current ip = 10.88.0.50"
show_device

session "a fresh session reads the committed settings back" <<'EOF'
get methods
get ip
get netmask
get gateway
get dns1
EOF
expect "configured ip = 10.88.0.50"
expect "configured gateway = 10.88.0.1"

step "knx-addon-host: switch to DHCP and wait for the lease"
net_open_host
net_ask set methods 4
net_ask commit
net_await_current "$lease_pattern" 30
echo "current ip = $current"
net_close_host
show_device
step "a name only dnsmasq knows, looked up on the device"
in_dev getent hosts "$dns_name" || net_fail "$dns_name does not resolve"

mkdir -p "$work/app-data/logs"
echo "counter=42" >"$work/app-data/settings.conf"
session "factory reset" <<'EOF'
factory-reset
EOF
expect "factory reset done"
[ ! -e "$work/app-data" ] || net_fail "the factory reset left the application data"
echo "application data deleted"
net_open_host
net_await_current "$lease_pattern" 30
net_close_host
show_device
session "after the factory reset the device reports its lease" <<'EOF'
get methods
get ip
get dns1
EOF
expect "configured methods = 4"
step "the device service's state file after the factory reset"
cat "$state"
grep -Eq '"Dhcp": *"true"' "$state" || net_fail "the device is not back on DHCP"
net_stop_service
echo
echo "network story passed"
