#!/usr/bin/env bash
# A search sent to the system setup multicast group reaches the server bound to
# a unicast address and the one bound to any address, inside a network
# namespace of its own whose loopback carries 10.99.0.1 and multicast.
# usage: multicast_test.sh KNXNETIP_CLIENT KNXNETIP_TEST_SERVER
# Exit 77 (skipped) where no network namespace can be made.
set -uo pipefail
if [ "${1:-}" != --inside ]; then
  unshare -n true 2>/dev/null || { echo "skipped: cannot make a network namespace"; exit 77; }
  exec unshare -n "$0" --inside "$@"
fi
client=$2
server=$3
ip link set lo up && ip link set lo multicast on && ip addr add 10.99.0.1/32 dev lo &&
  ip route add 224.0.0.0/4 dev lo || { echo "skipped: cannot set up multicast on loopback"; exit 77; }
failed=0
for bound in 10.99.0.1:3671 0.0.0.0:3671; do
  ready=$(mktemp)
  "$server" knx.friendlyName=multicast "$bound" >"$ready" &
  pid=$!
  for _ in $(seq 50); do
    grep -q "serving on" "$ready" && break
    sleep 0.1
  done
  rm -f "$ready"
  "$client" --timeout 2000 search 224.0.23.12:3671 | grep -q "^name: multicast$" ||
    { echo "FAIL: no search response from the server bound to $bound"; failed=1; }
  kill "$pid"
  wait "$pid"
done
[ "$failed" -eq 0 ] && echo "ok"
exit "$failed"
