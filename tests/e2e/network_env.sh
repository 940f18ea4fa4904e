# Sourced by the network end-to-end scripts and the DHCP benchmark: a device
# namespace and a peer namespace joined by a veth pair, dnsmasq on the peer end
# as DHCP and DNS server (10.88.0.1, leases 10.88.0.100 to .149, and a name
# only it knows), the device service on the device end writing the resolver
# file that `ip netns exec` shows the device namespace, and knx-addon-host
# driving the add-on there. Every exit ends every process of both namespaces
# and removes the namespaces and files.
# The caller sets `host` and `service` (the programs) and calls net_setup.

lib=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib" && pwd)
. "$lib/netns.sh"
. "$lib/processes.sh"

dns_name=knx-peer.test
dns_address=10.88.0.7
lease_pattern='^10\.88\.0\.1[0-4][0-9]$'

net_skip() {
  echo "SKIPPED: $*"
  exit 77
}

net_fail() {
  echo "FAIL: $*"
  echo "--- service log"
  tail -n 30 "$work/service.log" 2>/dev/null || true
  exit 1
}

in_dev() { ip netns exec "$dev_ns" "$@"; }

net_setup() {
  [ -n "${service:-}" ] || net_skip "waits for the simulated device service (tools/device-service)"
  local program reason
  for program in dnsmasq dhcpcd getent; do
    command -v "$program" >/dev/null || net_skip "needs $program (Debian packages dnsmasq-base, dhcpcd-base)"
  done
  dev_ns=knxd-$$ peer_ns=knxp-$$ dev_if=kd$$ peer_if=kp$$
  work=$(mktemp -d)
  socket=$work/device-stack.sock state=$work/state.json
  resolver=/etc/netns/$dev_ns/resolv.conf
  export VELBOR_DEVICE_STACK_SOCKET=$socket
  service_pid= host_pid=
  trap net_cleanup EXIT
  trap 'exit 1' INT TERM
  reason=$(netns_create "$dev_ns") || net_skip "$reason"
  ip netns add "$peer_ns"
  ip link add "$dev_if" netns "$dev_ns" type veth peer name "$peer_if" netns "$peer_ns"
  ip -n "$dev_ns" link set lo up
  ip -n "$dev_ns" link set "$dev_if" up
  ip -n "$peer_ns" link set lo up
  ip -n "$peer_ns" link set "$peer_if" up
  ip -n "$peer_ns" addr add 10.88.0.1/24 dev "$peer_if"
  mkdir -p "/etc/netns/$dev_ns"
  : >"$resolver"
  rm -f "/var/lib/dhcpcd/$dev_if.lease" # dhcpcd's memory of an interface of the same name
  printf 'ipconfig.interfaceName=%s\nfactoryreset.restartType=%s\n' "$dev_if" \
    "${restart_type:-FactoryReset}" >"$work/host.properties"
}

# Ends every process in both namespaces (the service stops its DHCP client on
# the way out), then removes the namespaces and files.
net_cleanup() {
  local ns pids
  set +e # a step that fails must not change the script's exit status
  for _ in $(seq 50); do
    pids=$(ip netns pids "$dev_ns" 2>/dev/null; ip netns pids "$peer_ns" 2>/dev/null)
    [ -n "$pids" ] || break
    kill -TERM $pids 2>/dev/null || true
    sleep 0.1
  done
  for ns in "$dev_ns" "$peer_ns"; do
    pids=$(ip netns pids "$ns" 2>/dev/null)
    [ -z "$pids" ] || kill -KILL $pids 2>/dev/null || true
    ip netns del "$ns" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  rm -rf "/etc/netns/$dev_ns" "/var/lib/dhcpcd/$dev_if.lease" "/run/dhcpcd/$dev_if"-4.* "$work"
}

# dnsmasq answers at once: with nobody else on the link, it need not ping an
# address before it offers it (which would hold up some offers by 3 s).
net_start_server() {
  ip netns exec "$peer_ns" dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root \
    --no-resolv --no-hosts --no-ping --interface="$peer_if" --bind-interfaces \
    --dhcp-range=10.88.0.100,10.88.0.149,255.255.255.0,1h \
    --dhcp-option=option:router,10.88.0.1 --dhcp-option=option:dns-server,10.88.0.1 \
    --host-record="$dns_name,$dns_address" --dhcp-leasefile="$work/dnsmasq.leases" \
    --pid-file="$work/dnsmasq.pid" --log-dhcp --log-facility="$work/dnsmasq.log" &
}

# Starts the service on the device end with the given extra options and waits
# until it listens (the socket of a killed one is removed first).
net_start_service() {
  rm -f "$socket"
  # ip netns exec replaces itself with the service, so $! is the service.
  ip netns exec "$dev_ns" "$service" --socket "$socket" --state "$state" --apply-to "$dev_if" \
    --resolv-conf "$resolver" "$@" >>"$work/service.log" 2>&1 &
  service_pid=$!
  wait_for_socket "$service_pid" "$socket" 10 "$work/service.log" || net_fail "the service did not start"
}

# Sends the service a signal (TERM by default) and waits for it to end.
net_stop_service() {
  kill "-${1:-TERM}" "$service_pid"
  wait "$service_pid" || true
  service_pid=
}

# A knx-addon-host session on the device end that net_ask talks to.
net_open_host() {
  coproc HOST { in_dev "$host" --config "$work/host.properties" --log-level WARN 2>>"$work/host.err"; }
  host_pid=$HOST_PID
}

# Runs one host command; its answer is in $reply.
net_ask() {
  echo "$*" >&"${HOST[1]}"
  IFS= read -r -t 30 reply <&"${HOST[0]}" || net_fail "no answer to '$*': $(cat "$work/host.err")"
}

net_close_host() {
  echo quit >&"${HOST[1]}"
  wait "$host_pid" || net_fail "the host ended with $?: $(cat "$work/host.err")"
  host_pid=
}

# Commits the static address $1/24 with 10.88.0.1 as gateway and DNS server
# through the open host session and waits until it is current.
net_commit_static() {
  net_ask set methods 1
  net_ask set ip "$1"
  net_ask set netmask 255.255.255.0
  net_ask set gateway 10.88.0.1
  net_ask set dns1 10.88.0.1
  net_ask commit
  net_await_current "^${1//./\\.}\$" 10
}

# Asks for the add-on's current address until it matches `pattern`, for at
# most `seconds`; the address is in $current.
net_await_current() {
  local pattern=$1 seconds=$2 deadline
  deadline=$((SECONDS + seconds))
  while [ "$SECONDS" -lt "$deadline" ]; do
    net_ask current ip
    current=${reply#current ip = }
    [[ $current =~ $pattern ]] && return 0
    sleep 0.05
  done
  net_fail "the current address stayed $current, not $pattern, for $seconds s"
}

# The IPv4 addresses of the device's interface, one a line (address/prefix).
dev_addresses() {
  in_dev ip -4 -o addr show dev "$dev_if" | awk '{print $4}'
}

# dhcpcd processes in the device namespace: all of them, or only the clients
# themselves (not their helpers, which are dhcpcd's children).
dev_dhcp_processes() {
  local pid
  for pid in $(ip netns pids "$dev_ns"); do
    grep -qx dhcpcd "/proc/$pid/comm" 2>/dev/null && echo "$pid"
  done
  return 0
}
dev_dhcp_clients() {
  local pid parent
  for pid in $(dev_dhcp_processes); do
    parent=$(awk '/^PPid:/ {print $2}' "/proc/$pid/status" 2>/dev/null) || continue
    grep -qx dhcpcd "/proc/$parent/comm" 2>/dev/null || echo "$pid"
  done
  return 0
}
no_dhcp_process() { [ -z "$(dev_dhcp_processes)" ]; }

# Waits up to `seconds` for the command given as the other arguments to
# succeed; it runs anew each time.
await() {
  local seconds=$1 deadline
  shift
  deadline=$((SECONDS + seconds))
  until "$@"; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.05
  done
}

# Fails when any process is left in the device namespace.
net_no_processes_left() {
  local pid left=
  for pid in $(ip netns pids "$dev_ns"); do
    left+=" $(ps -o pid=,ppid=,stat=,args= -p "$pid")"
  done
  [ -z "$left" ] || net_fail "processes left in $dev_ns:$left"
}
