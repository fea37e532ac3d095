#!/usr/bin/env bash
# Installs the dependencies, builds Vistrel (release preset) and starts it.
#
# With a reachable X display ($DISPLAY) Vistrel simply runs there.
# Without one (a server, a container, a CI runner) the script starts a private
# X session with three sample applications, lets Vistrel share one of them
# (a sample state file in a temporary data folder: your own state is never
# touched), saves a screenshot of that desktop and prints where it is.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)" --target vistrel vistrel-testclient
app="$root/build/release/src/app/vistrel"
client="$root/build/release/tests/tools/vistrel-testclient"

if [[ -n "${DISPLAY:-}" ]] && xdpyinfo >/dev/null 2>&1; then
  exec "$app" "$@"
fi

echo "run: no X display reachable${DISPLAY:+ at $DISPLAY}; starting a private demo session."
session="$(mktemp -d "${TMPDIR:-/tmp}/vistrel-demo.XXXXXX")"
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  scripts/x11-session.sh stop --dir "$session" >/dev/null 2>&1 || true
}
trap cleanup EXIT
trap 'exit 130' INT TERM

eval "$(scripts/x11-session.sh start --dir "$session" --monitors 2 --size 1920x1080)"
export DISPLAY XDG_RUNTIME_DIR

# Two monitors. Three applications in a column on the right of the left
# monitor; the output window is shown and dragged to the right monitor below,
# as a user would. Each client reads its commands from a pipe that
# this script holds open for as long as it runs.
start_client() { # class colour x y w h title
  local fifo="$session/$1.in" fd
  mkfifo "$fifo"
  "$client" --class "$1" <"$fifo" >"$session/$1.log" 2>&1 &
  pids+=($!)
  exec {fd}>"$fifo"
  echo "window main $2 $3 $4 $5 $6 title=$7" >&"$fd"
}
start_client Slides ff8800 1320 40 560 300 "Quarterly review"
start_client Mail 2060ff 1320 390 560 300 "Inbox"
start_client Chat 20c040 1320 740 560 300 "Team chat"

# The sample state: share Slides only.
export XDG_DATA_HOME="$session/data"
mkdir -p "$XDG_DATA_HOME/Vistrel"
cat >"$XDG_DATA_HOME/Vistrel/VistrelState.json" <<'JSON'
{
  "canvasBackground" : { "mode" : "gray" },
  "outputContentMode" : "sanitized",
  "outputFrameMode" : "screen",
  "policy" : {
    "allowList" : { "applications" : [ { "applicationName" : "Slides" } ], "windows" : [] },
    "blockList" : { "applications" : [], "windows" : [] },
    "mode" : "allowList"
  }
}
JSON

QT_QPA_PLATFORM=xcb "$app" "$@" >"$session/vistrel.log" 2>&1 &
pids+=($!)
vistrel_pid=$!
for _ in $(seq 1 100); do
  xdotool search --name '^Vistrel Output$' >/dev/null 2>&1 && break
  kill -0 "$vistrel_pid" 2>/dev/null || { cat "$session/vistrel.log" >&2; exit 1; }
  sleep 0.1
done
# Discovery, the first capture update and the first frames.
sleep 3
# The output starts docked; show it with the output button in the control
# window's header ("Hidden"; the window is centred at the bottom of the left
# monitor) and drag it to the right monitor, where it re-centres.
xdotool mousemove 1015 790 click 1
sleep 1
xdotool mousemove 300 300 mousedown 1
sleep 0.3 # the window manager takes the pointer for the move
xdotool mousemove 900 300
sleep 0.2
xdotool mousemove 2300 300
sleep 0.3
xdotool mouseup 1
sleep 2
shot="$session/screenshot.png"
import -window root "$shot"
echo "run: Vistrel runs on the private display $DISPLAY; its log is $session/vistrel.log."
echo "run: screenshot of that desktop: $shot"
echo "     Left monitor: the three applications, the control window and its preview; right monitor:"
echo "     the output window, which shows only Slides, the orange window."

if [[ -t 0 ]]; then
  if command -v x11vnc >/dev/null 2>&1; then
    x11vnc -display "$DISPLAY" -localhost -nopw -forever -quiet >"$session/x11vnc.log" 2>&1 &
    pids+=($!)
    echo "run: to watch it live, point a VNC viewer at 127.0.0.1:5900 (local connections only)."
  else
    echo "run: to watch it live, install x11vnc and run this script again."
  fi
  echo "run: press Enter to stop."
  read -r _ || true
fi
