#!/usr/bin/env bash
# The windowed program as a whole process, on Xvfb: launch time of `quillon FILE` until its window is on
# screen with the unlock screen's title, and peak memory with a 50,000-entry database unlocked, beside
# KeePassXC (`keepassxc --pw-stdin FILE`) on the same file.
#   bench/compare-windowed.sh [ENTRIES]        default 50000
# Needs a build (scripts/build; nothing is built here), Xvfb, xdotool and keepassxc.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUILLON_BUILD_DIR:-$root/build}
work=${QUILLON_BENCH_DIR:-$build/bench-windowed}
runs=${QUILLON_BENCH_RUNS:-10}
entries=${1:-50000}
password=bench
quillon=$build/app/quillon
maker=$build/bench/tools/make_bench_kdbx
for program in "$quillon" "$maker"; do
    [ -x "$program" ] || { echo "missing $program: build it first (scripts/build)" >&2; exit 2; }
done
rm -rf "$work"
mkdir -p "$work/home" "$work/run"
chmod 700 "$work/run"
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local/share
export XDG_RUNTIME_DIR=$work/run TMPDIR=$work/run QT_QPA_PLATFORM=xcb
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY

exec 3>"$work/display"
Xvfb -displayfd 3 -screen 0 1280x900x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.05; done
export DISPLAY=:$(head -1 "$work/display")

"$maker" 10 "$work/small.kdbx" "$password" >/dev/null
"$maker" "$entries" "$work/large.kdbx" "$password" >/dev/null

# Launch: from the spawn to the window on screen with its title, polled every few milliseconds.
python3 - "$quillon" "$work/small.kdbx" "$runs" <<'PY'
import os, signal, statistics, subprocess, sys, time
quillon, db, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
times = []
for _ in range(runs):
    start = time.monotonic()
    p = subprocess.Popen([quillon, db], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while True:
        out = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^small.kdbx is locked$"],
                             capture_output=True, text=True).stdout
        if out.strip():
            times.append((time.monotonic() - start) * 1000)
            break
        if time.monotonic() - start > 20:
            names = subprocess.run(["xdotool", "search", "--name", "."], capture_output=True, text=True).stdout.split()
            titles = [subprocess.run(["xdotool", "getwindowname", w], capture_output=True, text=True).stdout.strip()
                      for w in names]
            sys.exit(f"no window after 20 s (process {'running' if p.poll() is None else 'exited ' + str(p.returncode)};"
                     f" windows: {titles})")
    p.send_signal(signal.SIGTERM)
    p.wait()
    for name in os.listdir(os.environ["TMPDIR"]):
        if name.startswith("quillon-"):
            os.remove(os.path.join(os.environ["TMPDIR"], name))
print(f"launch to window on screen: median {statistics.median(times):.0f} ms, min {min(times):.0f} ms, "
      f"max {max(times):.0f} ms over {runs} runs")
PY

settled_peak() { # waits until the process's RSS stops growing for 3 s, then prints its peak RSS in MiB
    local pid=$1 last=0 still=0
    while [ $still -lt 6 ]; do
        sleep 0.5
        local now
        now=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
        if [ "$now" -le "$last" ]; then still=$((still + 1)); else still=0; fi
        last=$now
    done
    awk '/VmHWM/ {printf "%.1f", $2 / 1024}' "/proc/$pid/status"
}

# Quillon: typed at its unlock screen.
"$quillon" "$work/large.kdbx" >/dev/null 2>&1 &
q=$!
window=$(xdotool search --sync --name '^large.kdbx is locked$' | head -1)
xdotool windowfocus --sync "$window"
xdotool type --delay 20 "$password"
xdotool key Return
xdotool search --sync --name '^large.kdbx$' >/dev/null
quillon_peak=$(settled_peak $q)
kill $q; wait $q || true

# KeePassXC: the password on standard input.
keepassxc_peak=n/a
if command -v keepassxc >/dev/null; then
    printf '%s\n' "$password" | keepassxc --pw-stdin "$work/large.kdbx" >/dev/null 2>&1 &
    k=$!
    xdotool search --sync --name 'large' >/dev/null
    keepassxc_peak=$(settled_peak $k)
    kill $k; wait $k || true
fi
echo "peak RSS with $entries entries unlocked: quillon $quillon_peak MiB, keepassxc $keepassxc_peak MiB"
