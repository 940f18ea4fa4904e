# shellcheck shell=bash
# Network namespaces for tests. Source it: . "$root/scripts/lib/netns.sh"

# netns_create NAME
# Makes the network namespace NAME and checks that `ip netns exec` can run a
# program in it. Otherwise prints the reason on one line and returns 1, leaving
# no namespace behind: without root, without ip (iproute2), or where
# `ip netns exec` cannot set up its private mounts (in a chroot `/` is no
# mount point, so its `mount --make-rslave /` fails).
netns_create() {
  local ns=$1 error
  if [ "$(id -u)" -ne 0 ]; then
    echo "needs root for a network namespace"
  elif ! command -v ip >/dev/null; then
    echo "needs ip (iproute2)"
  elif ! error=$(ip netns add "$ns" 2>&1); then
    echo "ip netns add fails here: ${error%%$'\n'*}"
  elif ! error=$(ip netns exec "$ns" true 2>&1); then
    ip netns del "$ns" 2>/dev/null
    echo "ip netns exec fails here: ${error%%$'\n'*}"
  else
    return 0
  fi
  return 1
}
