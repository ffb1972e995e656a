#!/usr/bin/env bash
# The daemon's resident memory after a simulated week: writes a week of history for a simulated
# machine (or takes a store made before), starts `corvane daemon` on it with a private session
# bus and a private data folder, lets it run some ticks, then prints its VmRSS, VmHWM, Pss and
# CPU time per tick from /proc, and the mappings that hold the most.
#
#   bench/daemon_memory.sh BUILD_DIR [--machine NAME] [--days D] [--ticks N] [--store FILE]
#
# BUILD_DIR holds corvane and corvane-daemon (e.g. build/release). --store copies FILE instead
# of simulating (a week takes about a minute). Real time: the daemon ticks every 2 s.
set -euo pipefail

usage() { echo "usage: $0 BUILD_DIR [--machine NAME] [--days D] [--ticks N] [--store FILE]" >&2; exit 2; }
[[ $# -ge 1 ]] || usage
build=$1; shift
machine=M2-Max days=7 ticks=10 store=
while [[ $# -gt 0 ]]; do
  case $1 in
    --machine) machine=${2:?}; shift 2 ;;
    --days) days=${2:?}; shift 2 ;;
    --ticks) ticks=${2:?}; shift 2 ;;
    --store) store=${2:?}; shift 2 ;;
    *) usage ;;
  esac
done
corvane=$build/corvane
[[ -x $corvane && -x $build/corvane-daemon ]] || { echo "$0: no corvane and corvane-daemon in $build" >&2; exit 2; }

work=$(mktemp -d)
bus_pid= daemon_pid=
cleanup() {
  [[ -n $daemon_pid ]] && kill "$daemon_pid" 2>/dev/null && wait "$daemon_pid" 2>/dev/null
  [[ -n $bus_pid ]] && kill "$bus_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

export XDG_DATA_HOME=$work/data
group=$XDG_DATA_HOME/Corvane/group
mkdir -p "$group"
if [[ -n $store ]]; then
  cp "$store" "$group/Database.sqlite"
else
  echo "Simulating $days days on $machine..."
  "$corvane" simulate --machine "$machine" --days "$days" --store "$group/Database.sqlite" >"$work/simulate.txt"
  grep -E "Readings|Store size|Graph points" "$work/simulate.txt"
fi

read -r address bus_pid < <(dbus-daemon --session --fork --print-address=1 --print-pid=1 | paste -s -d ' ')
export DBUS_SESSION_BUS_ADDRESS=$address

"$corvane" daemon --machine "$machine" >"$work/daemon.out" 2>"$work/daemon.err" &
daemon_pid=$!
for _ in $(seq 100); do
  grep -q "writing" "$work/daemon.out" 2>/dev/null && break
  sleep 0.2
done
grep -q "writing" "$work/daemon.out" || { echo "$0: the daemon did not start:" >&2; cat "$work/daemon.err" >&2; exit 1; }

# CPU time of the daemon so far, all threads, in nanoseconds.
cpu() { cat /proc/"$daemon_pid"/task/*/schedstat | awk '{ sum += $1 } END { printf "%d", sum }'; }
sleep 2
before=$(cpu)
sleep $((2 * ticks))
after=$(cpu)

echo "Daemon ($(head -1 "$work/daemon.out")) after $ticks ticks on a $days-day store of $machine:"
grep -E "^(VmRSS|VmHWM|Threads)" "/proc/$daemon_pid/status"
grep -E "^(Pss|Private_Dirty|Anonymous):" "/proc/$daemon_pid/smaps_rollup"
echo "CPU per tick:  $(awk -v d=$((after - before)) -v n="$ticks" 'BEGIN { printf "%.2f ms", d / 1e6 / n }')"
echo "Largest mappings (Rss kB, Pss kB):"
awk '/^[0-9a-f]+-[0-9a-f]+ / { name = (NF >= 6 ? $6 : "[anon]") }
     /^Rss:/ { rss[name] += $2 } /^Pss:/ { pss[name] += $2 }
     END { for (n in rss) if (rss[n] >= 100) printf "%8d %8d  %s\n", rss[n], pss[n], n }' \
  "/proc/$daemon_pid/smaps" | sort -rn
