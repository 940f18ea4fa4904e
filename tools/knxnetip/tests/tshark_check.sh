#!/usr/bin/env bash
# Runs the protocol tests (given as $1) on a fixed port while tshark captures
# loopback, then has Wireshark's KNXnet/IP dissector decode every frame the
# server sent. Fails on any frame it marks malformed or with an expert note of
# warning severity or above, or when a server frame is not decoded as KNXnet/IP.
# Exit 77 (skipped) when tshark is missing or cannot capture on loopback.
set -uo pipefail
tests=${1:?usage: tshark_check.sh PROTOCOL_TEST_BINARY}
if ! command -v tshark >/dev/null; then
  echo "skipped: tshark is not installed"
  exit 77
fi
work=$(mktemp -d)
trap 'kill "$capture" 2>/dev/null; rm -rf "$work"' EXIT
port=$((20000 + RANDOM % 10000))
capture_file=$work/capture.pcapng

tshark -i lo -f "udp port $port" -w "$capture_file" -q 2>"$work/tshark.log" &
capture=$!
# The capture is under way once a probe sent to the port shows in the file.
for _ in $(seq 50); do
  kill -0 "$capture" 2>/dev/null || break
  echo probe >"/dev/udp/127.0.0.1/$port"
  [ "$(tshark -r "$capture_file" 2>/dev/null | wc -l)" -gt 0 ] && break
  sleep 0.2
done
if ! kill -0 "$capture" 2>/dev/null || [ "$(tshark -r "$capture_file" 2>/dev/null | wc -l)" -eq 0 ]; then
  echo "skipped: cannot capture on loopback: $(head -n 1 "$work/tshark.log")"
  exit 77
fi

KNXNETIP_TEST_PORT=$port "$tests" --gtest_brief=1 >"$work/tests.log" 2>&1 || {
  cat "$work/tests.log"
  echo "FAIL: the protocol tests failed"
  exit 1
}
sleep 0.5 # let the capture take the last frames
kill -INT "$capture"
wait "$capture"

decode() { tshark -r "$capture_file" -d "udp.port==$port,kip" -Y "udp.srcport==$port && ($1)" "${@:2}" 2>/dev/null; }
sent=$(decode "udp" | wc -l)
decoded=$(decode "kip" | wc -l)
# The dissector expects one element wherever the start index is 0, also in a
# negative confirmation (count 0 and an error byte) such as the refusal of a
# write to a property's element count. Such frames may carry that note alone.
refusal_at_0="cemi.n == 0 && cemi.x == 0"
marked=$(decode "(_ws.malformed || _ws.expert.severity >= 0x00600000) && !($refusal_at_0)" -V)
notes_at_0=$(decode "$refusal_at_0" -T fields -e _ws.expert.message | sort -u | grep -v '^Expected: 1 element$')
echo "server frames: $sent, decoded as KNXnet/IP: $decoded," \
  "refusals at start index 0: $(decode "$refusal_at_0" | wc -l)"
services=$(decode "kip" -T fields -e knxip.service | sort | uniq -c)
echo "$services" | sed 's/^/  service /'
# Every service the server has must have been seen: a capture that began late would miss some.
for service in 0x0202 0x0204 0x0206 0x0208 0x0209 0x020a 0x020c 0x0310 0x0311; do
  echo "$services" | grep -q " $service\$" || marked+=$'\n'"no frame of service $service captured"
done
if [ "$sent" -eq 0 ] || [ "$decoded" -ne "$sent" ] || [ -n "$marked$notes_at_0" ]; then
  echo "$notes_at_0"
  echo "$marked"
  echo "FAIL: frames of the server that the dissector does not accept"
  exit 1
fi
echo "ok: every frame of the server decoded cleanly"
