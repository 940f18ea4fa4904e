#!/usr/bin/env bash
# Runs knx-addon-host against the built add-on: a command session with its output
# checked line by line, then the error cases with their exit codes and messages.
# Usage: host_test.sh HOST FAKE_V19_ADDON FAKE_V20_ADDON LIBRARY_WITHOUT_ENTRY_FUNCTIONS SERVICE
set -uo pipefail
host=$1 fake_addon=$2 empty_addon=$3 no_entry_library=$4 service=$5
work=$(mktemp -d)
service_pid=""
trap '[ -z "$service_pid" ] || kill "$service_pid"; rm -rf "$work"' EXIT
# No service listens here, so the add-on keeps its own defaults.
export VELBOR_DEVICE_STACK_SOCKET=$work/no-service.sock
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

mkdir -p "$work/data/sub" && touch "$work/data/a" "$work/data/sub/b"
cat >"$work/host.properties" <<EOF
# interface and factory reset settings
ipconfig.interfaceName = knxtest0
factoryreset.processTime=0x3C
factoryreset.applicationData=$work/data
EOF
cat >"$work/log.properties" <<'EOF'
log4cplus.rootLogger=DEBUG, err
log4cplus.appender.err=log4cplus::ConsoleAppender
log4cplus.appender.err.logToStdErr=true
log4cplus.appender.err.layout=log4cplus::PatternLayout
log4cplus.appender.err.layout.ConversionPattern=LOG %p %c: %m%n
EOF
cat >"$work/session.script" <<'EOF'
# defaults, then every configured value set and read back
get methods
capabilities
process-time
set ip 192.168.1.50   # trailing comment
set netmask 255.255.255.0
set gateway 192.168.1.1
set dns1 10.0.0.53
set dns2 0.0.0.0
set methods 0x1

get ip
commit
factory-reset
quit
get netmask
EOF
expected="configured methods = 15
capabilities = 6
process time = 60
configured ip = 192.168.1.50
configured netmask = 255.255.255.0
configured gateway = 192.168.1.1
configured dns1 = 10.0.0.53
configured dns2 = 0.0.0.0
configured methods = 1
configured ip = 192.168.1.50
commit done
factory reset done"

"$host" --config "$work/host.properties" --script "$work/session.script" \
  --log-config "$work/log.properties" --log-level INFO >"$work/out" 2>"$work/err" ||
  fail "session: exit code $?: $(cat "$work/err")"
diff <(echo "$expected") "$work/out" || fail "session: output differs"
[ ! -e "$work/data" ] || fail "session: factory reset left $work/data"
grep -qx 'LOG INFO KnxStack.IpConfigFactory: Shutdown() ...' "$work/err" ||
  fail "session: no add-on shutdown in the log"
! grep -q '^LOG DEBUG' "$work/err" || fail "session: --log-level INFO let DEBUG through"
notice="cannot reach the device service at $work/no-service.sock (No such file or directory); \
start it with 'velbor-device-service --socket $work/no-service.sock' or set VELBOR_DEVICE_STACK_SOCKET"
[ "$(grep -cF "$notice" "$work/err")" = 1 ] || fail "session: no single notice '$notice'"

echo "capabilities" | "$host" --log-level OFF >"$work/out" 2>/dev/null || fail "stdin: exit code $?"
[ "$(cat "$work/out")" = "capabilities = 6" ] || fail "stdin: got '$(cat "$work/out")'"
printf 'mac\ncurrent ip\ncurrent netmask\ncurrent gateway\n' |
  "$host" --log-level OFF >"$work/out" 2>/dev/null || fail "current values: exit code $?"
grep -Eqx 'mac = ([0-9a-f]{2}:){5}[0-9a-f]{2}' "$work/out" || fail "mac: $(cat "$work/out")"
[ "$(grep -Ecx 'current (ip|netmask|gateway) = [0-9]+(\.[0-9]+){3}' "$work/out")" = 3 ] ||
  fail "current values: $(cat "$work/out")"

printf 'get methods\nfrobnicate\nget ip\n' >"$work/bad.script"
printf 'factoryreset.processTime=1\nprocessTime=2\n' >"$work/bad.properties"
printf 'knx.friendlyName=ok\nknx.individualAddress=16.0.1\n' >"$work/knx.properties"
# name, exit code, expected standard output, text expected on standard error, host arguments
check_failure() {
  local name=$1 code=$2 output=$3 message=$4
  shift 4
  "$host" --log-level OFF "$@" </dev/null >"$work/out" 2>"$work/err"
  local status=$?
  [ "$status" -eq "$code" ] || fail "$name: exit code $status, expected $code"
  [ "$(cat "$work/out")" = "$output" ] || fail "$name: output '$(cat "$work/out")'"
  grep -qF -- "$message" "$work/err" || fail "$name: no '$message' in: $(cat "$work/err")"
  ! grep -q 'fake add-on 19 started' "$work/err" || fail "$name: started an incompatible add-on"
}
check_failure "bad command" 1 "configured methods = 15" \
  "bad.script:2: unknown command 'frobnicate'" --script "$work/bad.script"
check_failure "bad address" 1 "" ":1: not a dotted IPv4 address: '300.1.1.1'" \
  --script <(echo "set ip 300.1.1.1")
check_failure "bad value name" 1 "" "unknown value 'mask'" --script <(echo "get mask")
check_failure "missing argument" 1 "" "usage: set ip|netmask" --script <(echo "set ip")
check_failure "bad number" 1 "" "not a number" --script <(echo "set methods -1")
check_failure "bad config line" 1 "" "bad.properties:2: expected" --config "$work/bad.properties"
check_failure "bad knx value" 1 "" "knx.properties:2: knx.individualAddress: expected AREA.LINE" \
  --config "$work/knx.properties" --knxnetip 127.0.0.1:0
check_failure "unbindable endpoint" 5 "" "cannot bind UDP socket to 192.0.2.1:3671" \
  --knxnetip 192.0.2.1
check_failure "missing add-on" 3 "" "cannot load add-on" --addon "$work/missing.so"
check_failure "missing entry function" 3 "" "add-on has no entry function" \
  --addon "$no_entry_library"
check_failure "wrong API version" 3 "" "built for API version 19, this host needs 20" \
  --addon "$fake_addon"
check_failure "no factories" 3 "" "add-on registered no factory for DscKnxIpConfig" \
  --addon "$empty_addon"
check_failure "bad option" 2 "" "bad argument --frob" --frob
check_failure "bad log level" 2 "" "unknown log level LOUD" --log-level LOUD
check_failure "bad endpoint" 2 "" "bad --knxnetip 127.0.0.1:65536" --knxnetip 127.0.0.1:65536
check_failure "server and script" 2 "" "--knxnetip and --script exclude each other" \
  --knxnetip 127.0.0.1:0 --script "$work/session.script"
check_failure "missing script" 2 "" "cannot read script" --script "$work/missing.script"
for option in --script --config --log-config; do
  check_failure "$option directory" 2 "" "$work: Is a directory" "$option" "$work"
done

for option in -h --help; do
  "$host" "$option" >"$work/out" || fail "$option: exit code $?"
  grep -q '^usage: knx-addon-host' "$work/out" || fail "$option: no usage"
done
# A closed standard input reads as empty; a failed write to standard output fails the run.
# Under binfmt_misc emulation the loader hands the emulator the program on the
# lowest free descriptor, 0 when it is closed, so the case holds only natively.
if ! command -v file >/dev/null || file -bL "$host" | grep -q "$(uname -m | tr _ -)"; then
  timeout 10 "$host" --log-level OFF <&- >"$work/out" 2>/dev/null || fail "closed stdin: exit code $?"
fi
# The ready line of the server mode too.
for mode in "" "--knxnetip 127.0.0.1:0"; do
  # shellcheck disable=SC2086 # no option or one with its value
  echo capabilities | "$host" --log-level OFF $mode >/dev/full 2>"$work/err"
  status=$?
  [ "$status" -eq 4 ] || fail "full stdout $mode: exit code $status, expected 4"
  grep -qF "cannot write to standard output: No space left on device" "$work/err" ||
    fail "full stdout $mode: $(cat "$work/err")"
done

# With the device service listening, the host says nothing about it.
"$service" --socket "$work/service.sock" --state "$work/state.json" 2>/dev/null &
service_pid=$!
for _ in $(seq 100); do [ -S "$work/service.sock" ] && break || sleep 0.05; done
echo capabilities | VELBOR_DEVICE_STACK_SOCKET=$work/service.sock "$host" --log-level OFF \
  >"$work/out" 2>"$work/err" || fail "service: exit code $?"
[ ! -s "$work/err" ] || fail "service: $(cat "$work/err")"

[ "$failures" -eq 0 ] && echo "all host checks passed"
exit $((failures > 0))
