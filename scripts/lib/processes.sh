# shellcheck shell=bash
# Helpers for scripts that start the device service (or other programs) in the
# background. Source it: . "$root/scripts/lib/processes.sh"

# wait_for_socket PID SOCKET [SECONDS [LOG]]
# Waits until SOCKET exists, for at most SECONDS (default 10). Returns 1 with a
# message on standard error, followed by the last lines of LOG when one is
# named, as soon as process PID (a child of this shell) has exited, or when
# the time is up. A socket left behind by a killed service counts as open:
# remove it before starting the service again.
wait_for_socket() {
  local pid=$1 socket=$2 seconds=${3:-10} log=${4:-} tries status=0
  for ((tries = seconds * 20; tries > 0; tries--)); do
    [ -S "$socket" ] && return 0
    if ! kill -0 "$pid" 2>/dev/null; then
      wait "$pid" 2>/dev/null || status=$?
      echo "the device service (pid $pid) exited with status $status before opening $socket" >&2
      break
    fi
    sleep 0.05
  done
  [ "$tries" -gt 0 ] || echo "the device service (pid $pid) did not open $socket within $seconds s" >&2
  if [ -n "$log" ] && [ -s "$log" ]; then
    tail -n 5 "$log" | sed 's/^/  /' >&2
  fi
  return 1
}

# stop_processes PID...
# Sends SIGTERM to each process, waits up to five seconds for them to end,
# sends SIGKILL to any still running and reaps them all. Exit statuses are
# ignored; PIDs that have ended already are skipped.
stop_processes() {
  local pid tries running
  [ $# -gt 0 ] || return 0
  kill -TERM "$@" 2>/dev/null || true
  for ((tries = 100; tries > 0; tries--)); do
    running=false
    for pid in "$@"; do
      kill -0 "$pid" 2>/dev/null && running=true
    done
    $running || break
    sleep 0.05
  done
  kill -KILL "$@" 2>/dev/null || true
  for pid in "$@"; do
    wait "$pid" 2>/dev/null || true
  done
}
