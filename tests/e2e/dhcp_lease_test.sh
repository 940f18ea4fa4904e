#!/usr/bin/env bash
# End to end with a real DHCP and DNS server: the add-on in knx-addon-host
# switches the device from a static address to DHCP and its next current
# address is a lease from dnsmasq; the device reports the lease, and a name
# that only dnsmasq knows resolves on the device; switching back to static
# releases the lease and leaves only the static address. Skipped (exit 77)
# without root, network namespaces, dnsmasq or dhcpcd.
# Usage: dhcp_lease_test.sh HOST DEVICE_SERVICE
set -euo pipefail
host=$1 service=${2:-}
. "$(dirname "$0")/network_env.sh"
net_setup
net_start_server
net_start_service
net_open_host

net_commit_static 10.88.0.50

net_ask set methods 4
net_ask commit
net_await_current "$lease_pattern" 30
lease=$current
[ "$(dev_addresses)" = "$lease/24" ] || net_fail "addresses besides the lease: $(dev_addresses)"
net_ask current gateway
[ "$reply" = "current gateway = 10.88.0.1" ] || net_fail "$reply"
net_close_host

in_dev "$host" --config "$work/host.properties" --log-level WARN >"$work/out" <<'EOF'
get methods
get ip
get dns1
EOF
[ "$(cat "$work/out")" = "configured methods = 4
configured ip = $lease
configured dns1 = 10.88.0.1" ] || net_fail "the device reported: $(cat "$work/out")"
[ "$(grep nameserver "$resolver")" = "nameserver 10.88.0.1" ] ||
  net_fail "resolver file: $(cat "$resolver")"
[ "$(in_dev getent hosts "$dns_name" | awk '{print $1}')" = "$dns_address" ] ||
  net_fail "$dns_name does not resolve on the device"

net_open_host
net_commit_static 10.88.0.60
net_close_host
await 5 grep -q "DHCPRELEASE.* $lease " "$work/dnsmasq.log" || net_fail "no DHCPRELEASE of $lease"
[ "$(dev_addresses)" = "10.88.0.60/24" ] || net_fail "addresses: $(dev_addresses)"
no_dhcp_process || net_fail "a DHCP client still runs on a static address"

net_stop_service
net_no_processes_left
echo "DHCP lease, name look-up and release passed"
