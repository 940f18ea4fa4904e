#!/usr/bin/env bash
# End to end without a DHCP server: the add-on switches the device to DHCP, no
# server answers and the interface takes a link-local address (169.254.0.0/16)
# after the client's fallback time; once dnsmasq answers, the device takes a
# lease. Skipped (exit 77) without root, network namespaces, dnsmasq or dhcpcd.
# Usage: link_local_test.sh HOST DEVICE_SERVICE
set -euo pipefail
host=$1 service=${2:-}
. "$(dirname "$0")/network_env.sh"
net_setup
net_start_service
net_open_host

net_ask set methods 4
net_ask commit
net_await_current '^169\.254\.' 30
[ "$(dev_addresses)" = "$current/16" ] || net_fail "addresses: $(dev_addresses)"
net_ask current netmask
[ "$reply" = "current netmask = 255.255.0.0" ] || net_fail "$reply"

net_start_server
net_await_current "$lease_pattern" 90
net_close_host
echo "link-local address, then a lease, passed"
