#!/usr/bin/env bash
# Runs the test executable $1 inside a network namespace of its own and removes
# the namespace on every path. Exits 77 (skipped), saying why, when no namespace
# can be used (without root, or in a chroot).
#   lo     up, loopback
#   knxc0  down, 10.77.3.2/24      knxc1  up, no IPv4
#   knxb0  up, 10.77.2.2/24 and secondary 10.77.2.3/24, default route via 10.77.2.1 metric 100
#   knxb1  up, no IPv4
#   knxa0  up, 10.77.1.2/24, MAC 02:4b:4e:58:00:01, default route via 10.77.1.1
#   knxa1  down, 10.77.4.2 with peer 10.77.4.1
#   a default route via 10.77.2.5 in table 100 (not the main table)
set -u
. "$(dirname "$0")/../../../scripts/lib/netns.sh"
ns="knxip-test-$$"
if ! reason=$(netns_create "$ns"); then
  echo "SKIPPED: $reason"
  exit 77
fi
trap 'ip netns del "$ns"' EXIT
trap 'exit 130' INT TERM HUP

set -e
run() { ip -n "$ns" "$@"; }
run link set lo up
for pair in c b a; do run link add "knx${pair}0" type veth peer name "knx${pair}1"; done
run link set knxa0 address 02:4b:4e:58:00:01
for link in knxc1 knxb0 knxb1 knxa0; do run link set "$link" up; done
run addr add 10.77.3.2/24 dev knxc0
run addr add 10.77.2.2/24 dev knxb0
run addr add 10.77.2.3/24 dev knxb0
run addr add 10.77.1.2/24 dev knxa0
run addr add 10.77.4.2 peer 10.77.4.1 dev knxa1
run route add default via 10.77.1.1
run route add default via 10.77.2.1 metric 100
run route add default via 10.77.2.5 table 100
set +e

KNXIP_TEST_NETNS="$ns" ip netns exec "$ns" "$1"
