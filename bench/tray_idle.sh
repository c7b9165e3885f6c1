#!/usr/bin/env bash
# What the tray agent costs while nothing happens, and how soon its item reaches the panel.
#
# Starts the agent on a private X server (Xvfb) and session bus with a real StatusNotifierItem
# tray (gtk-sni-tray-standalone with its watcher), signed in to a local vaskel-devserver with the
# sync domain registered, in a throwaway home. Reports:
#   - exec → item: from starting the program to its RegisterStatusNotifierItem call on the bus;
#   - after SETTLE seconds, over IDLE seconds: RSS and PSS at the end, CPU time and context
#     switches of all its threads, and the D-Bus signals it sent, each per minute.
# Usage: bench/tray_idle.sh [build-dir]   (SETTLE=10 IDLE=60 by default)
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
settle=${SETTLE:-10}
idle=${IDLE:-60}

"$(dirname "$0")/../scripts/install-deps" --extras

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

home=$work/home
mkdir -p "$home"
export HOME=$home VASKEL_TEST_HOME=$home XDG_CONFIG_HOME=$home/.config \
  XDG_DATA_HOME=$home/.local/share XDG_STATE_HOME=$home/.local/state \
  XDG_RUNTIME_DIR=$work/runtime
mkdir -p -m 0700 "$XDG_RUNTIME_DIR"
preload=$build/libvaskel-test-home.so

display=:$((90 + RANDOM % 100))
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
pids+=($!)
export DISPLAY=$display
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done

"$build/vaskel-devserver" --port 0 --key bench-key >"$work/devserver.log" 2>&1 &
pids+=($!)
for _ in $(seq 50); do grep -q "http://" "$work/devserver.log" && break; sleep 0.1; done
origin=$(grep -o 'http://127.0.0.1:[0-9]*' "$work/devserver.log" | head -1)
mkdir -p -m 0700 "$home/.vaskel"
printf '{"server": "%s", "api_key": "bench-key", "account_email": "demo@example.com"}\n' \
  "$origin" >"$home/.vaskel/config.json"
chmod 0600 "$home/.vaskel/config.json"
touch "$home/.vaskel/keychain_ok"

cat >"$work/session.sh" <<SESSION
set -euo pipefail
LD_PRELOAD=$preload "$build/vaskel" --add >/dev/null
gtk-sni-tray-standalone --watcher --bottom >"$work/tray.log" 2>&1 &
for _ in \$(seq 100); do
  dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.NameHasOwner string:org.kde.StatusNotifierWatcher 2>/dev/null |
    grep -q true && break
  sleep 0.05
done
dbus-monitor --session "interface='org.kde.StatusNotifierWatcher',member='RegisterStatusNotifierItem'" \
  >"$work/register.log" 2>&1 &
sleep 0.5
start=\$(date +%s.%N)
QT_QPA_PLATFORM=${QPA:-xcb} ${AGENT_ENV:-} LD_PRELOAD=$preload "$build/vaskel" >"$work/vaskel.log" 2>&1 &
agent=\$!
echo "\$agent" >"$work/agent.pid"
call=
for _ in \$(seq 500); do
  call=\$(grep -m1 'member=RegisterStatusNotifierItem' "$work/register.log" 2>/dev/null) && break
  sleep 0.01
done
registered=\$(grep -o 'time=[0-9.]*' <<<"\$call" | cut -d= -f2)
echo "exec → item: \$(echo "(\$registered - \$start) * 1000" | bc -l | xargs printf '%.0f') ms"

sleep $settle
sender=\$(grep -o 'sender=[^ ]*' <<<"\$call" | cut -d= -f2)
dbus-monitor --session "type='signal',sender='\$sender'" >"$work/signals.log" 2>&1 &
monitor=\$!
sample() { # cpu-ns context-switches, summed over the agent's threads
  local cpu=0 switches=0
  for task in /proc/\$agent/task/*; do
    cpu=\$((cpu + \$(cut -d' ' -f1 "\$task/schedstat")))
    switches=\$((switches + \$(awk '/ctxt_switches/ { s += \$2 } END { print s }' "\$task/status")))
  done
  echo "\$cpu \$switches"
}
read -r cpu0 sw0 < <(sample)
sleep 0.2
before=\$(grep -c '^signal' "$work/signals.log" || true)
sleep $idle
read -r cpu1 sw1 < <(sample)
after=\$(grep -c '^signal' "$work/signals.log" || true)
kill \$monitor 2>/dev/null || true
rss=\$(awk '/^VmRSS/ { print \$2 }' /proc/\$agent/status)
pss=\$(awk '/^Pss:/ { print \$2 }' /proc/\$agent/smaps_rollup)
minutes=\$(echo "$idle / 60" | bc -l)
printf 'RSS: %.1f MiB   PSS: %.1f MiB\n' "\$(echo "\$rss / 1024" | bc -l)" "\$(echo "\$pss / 1024" | bc -l)"
printf 'CPU: %.2f ms per idle minute\n' "\$(echo "(\$cpu1 - \$cpu0) / 1000000 / \$minutes" | bc -l)"
printf 'context switches: %.0f per idle minute\n' "\$(echo "(\$sw1 - \$sw0) / \$minutes" | bc -l)"
printf 'D-Bus signals sent: %.0f per idle minute\n' "\$(echo "(\$after - \$before) / \$minutes" | bc -l)"
kill \$agent
SESSION
dbus-run-session -- bash "$work/session.sh"
