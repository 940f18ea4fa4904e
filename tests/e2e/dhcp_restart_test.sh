#!/usr/bin/env bash
# End to end with a real DHCP server: a "Restart" applies the persisted
# settings afresh (a static address replaces whatever else the interface had;
# under DHCP a new client takes the lease again), a service killed with
# SIGKILL takes its DHCP client along and, started again, comes back with its
# settings and a client, and a "FactoryReset" restart returns to the factory
# settings (DHCP, no static addresses). Skipped (exit 77) without root,
# network namespaces, dnsmasq or dhcpcd.
# Usage: dhcp_restart_test.sh HOST DEVICE_SERVICE
set -euo pipefail
host=$1 service=${2:-}
restart_type=Reboot
. "$(dirname "$0")/network_env.sh"
net_setup
net_start_server
net_start_service
net_open_host

net_commit_static 10.88.0.50
in_dev ip addr add 10.88.0.99/24 dev "$dev_if"
net_ask factory-reset
[ "$(dev_addresses)" = "10.88.0.50/24" ] || net_fail "after a restart: $(dev_addresses)"

net_ask set methods 4
net_ask commit
net_await_current "$lease_pattern" 30
client=$(dev_dhcp_clients)
net_ask factory-reset
[ -n "$(dev_dhcp_clients)" ] && [ "$(dev_dhcp_clients)" != "$client" ] ||
  net_fail "the DHCP client was not started anew: $client, now $(dev_dhcp_clients)"
net_await_current "$lease_pattern" 30
net_close_host

net_stop_service KILL
await 5 no_dhcp_process || net_fail "the DHCP client outlived the killed service"
net_start_service
[ -n "$(dev_dhcp_clients)" ] || net_fail "no DHCP client after the service came back"
net_open_host
net_ask get methods
[ "$reply" = "configured methods = 4" ] || net_fail "$reply"
net_await_current "$lease_pattern" 30
net_close_host

echo "factoryreset.restartType=FactoryReset" >>"$work/host.properties"
net_open_host
net_ask factory-reset
net_await_current "$lease_pattern" 30
net_close_host
grep -Eq '"Dhcp": *"true"' "$state" && grep -Eq '"IpAddress": *"0\.0\.0\.0"' "$state" ||
  net_fail "state after a factory reset: $(cat "$state")"

net_stop_service
net_no_processes_left
echo "restart, factory reset and a killed service passed"
