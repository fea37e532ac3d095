#!/usr/bin/env bash
# A private X session for tests, demos and benchmarks: Xvfb on a free display,
# RandR monitors, openbox, and a private XDG_RUNTIME_DIR.
#
#   x11-session.sh start [--dir DIR] [--size WxH] [--monitors 1|2] [--no-wm]
#       Starts the session and prints its environment (DISPLAY=..., one
#       assignment per line, suitable for `eval`). The same lines are written
#       to DIR/env; DIR (default: a new temporary directory) also keeps the
#       pids and logs. The last printed line is SESSION_DIR=DIR.
#   x11-session.sh env  --dir DIR    prints the environment again
#   x11-session.sh stop --dir DIR    stops openbox and Xvfb by their pids
#
# Layout: --monitors 2 (default) makes a 3840x1080 screen split into LEFT
# (1920x1080+0+0, on the screen's output) and RIGHT (1920x1080+1920+0, a
# monitor without output). --monitors 1 makes one monitor of --size (default
# 1920x1080); with two monitors --size is the size of each.
# Monitors are set before the window manager starts, so it sees both heads.
set -euo pipefail

usage() {
  sed -n '2,17p' "$0" >&2
  exit 2
}

cmd="${1:-}"
[[ -n "$cmd" ]] || usage
shift
dir=""
size="1920x1080"
monitors=2
wm=1
while (($#)); do
  case "$1" in
  --dir) dir="$2"; shift 2 ;;
  --size) size="$2"; shift 2 ;;
  --monitors) monitors="$2"; shift 2 ;;
  --no-wm) wm=0; shift ;;
  *) usage ;;
  esac
done

wait_for() { # seconds command...
  local deadline=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < deadline)) || return 1
    sleep 0.05
  done
}

# True once a window has been managed (or, with $1 = empty, none is), after
# changing a root property: openbox can leave a map request that came while it
# finished starting in its queue until some other event wakes it.
clients_are() {
  xprop -root -f _VISTREL_NUDGE 32c -set _VISTREL_NUDGE "$RANDOM"
  local list
  list="$(xprop -root _NET_CLIENT_LIST 2>/dev/null)"
  if [[ "$1" == some ]]; then [[ "$list" == *"window id # 0x"* ]]; else [[ "$list" != *"0x"* ]]; fi
}

stop_pid() {
  local pid="$1"
  kill -0 "$pid" 2>/dev/null || return 0
  kill -TERM "$pid" 2>/dev/null || true
  for _ in $(seq 1 40); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.05
  done
  kill -KILL "$pid" 2>/dev/null || true
}

case "$cmd" in
start)
  [[ "$size" =~ ^([0-9]+)x([0-9]+)$ ]] || { echo "x11-session: bad --size $size" >&2; exit 2; }
  w="${BASH_REMATCH[1]}"
  h="${BASH_REMATCH[2]}"
  [[ "$monitors" == 1 || "$monitors" == 2 ]] || { echo "x11-session: --monitors is 1 or 2" >&2; exit 2; }
  [[ -n "$dir" ]] || dir="$(mktemp -d "${TMPDIR:-/tmp}/vistrel-x11.XXXXXX")"
  mkdir -p "$dir/runtime"
  chmod 700 "$dir/runtime"
  screen_w=$((w * monitors))

  # -displayfd: the server picks a free display and writes its number to the
  # pipe once it accepts connections, so there is no race with other sessions.
  fifo="$dir/displayfd"
  rm -f "$fifo"
  mkfifo "$fifo"
  Xvfb -displayfd 3 -screen 0 "${screen_w}x${h}x24" -nolisten tcp -noreset \
    3>"$fifo" >"$dir/xvfb.log" 2>&1 </dev/null &
  echo $! >"$dir/xvfb.pid"
  number=""
  if ! read -r -t 15 number <"$fifo" || [[ -z "$number" ]]; then
    echo "x11-session: Xvfb did not start (see $dir/xvfb.log)" >&2
    stop_pid "$(cat "$dir/xvfb.pid")"
    exit 1
  fi
  rm -f "$fifo"
  export DISPLAY=":$number"
  export XDG_RUNTIME_DIR="$dir/runtime"

  # Physical sizes give about 96 dpi. The right monitor has no output ("none"):
  # Xvfb has a single output, and discovery gives such a monitor an id derived
  # from its name.
  mm_w=$((w * 254 / 960))
  mm_h=$((h * 254 / 960))
  if [[ "$monitors" == 2 ]]; then
    xrandr --setmonitor LEFT "$w/${mm_w}x$h/${mm_h}+0+0" screen >>"$dir/xrandr.log" 2>&1
    xrandr --setmonitor RIGHT "$w/${mm_w}x$h/${mm_h}+$w+0" none >>"$dir/xrandr.log" 2>&1
  fi

  if [[ "$wm" == 1 ]]; then
    openbox --sm-disable >"$dir/openbox.log" 2>&1 </dev/null &
    echo $! >"$dir/openbox.pid"
    if ! wait_for 15 sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'; then
      echo "x11-session: openbox did not become ready (see $dir/openbox.log)" >&2
      stop_pid "$(cat "$dir/openbox.pid")"
      stop_pid "$(cat "$dir/xvfb.pid")"
      exit 1
    fi
    # Hand the session out only once openbox really manages windows: a probe
    # window is managed, then closed again.
    xmessage -geometry +0+0 probe >/dev/null 2>&1 </dev/null &
    probe=$!
    if ! wait_for 15 clients_are some; then
      echo "x11-session: openbox manages no window (see $dir/openbox.log)" >&2
      kill "$probe" 2>/dev/null || true
      stop_pid "$(cat "$dir/openbox.pid")"
      stop_pid "$(cat "$dir/xvfb.pid")"
      exit 1
    fi
    kill "$probe" 2>/dev/null || true
    wait "$probe" 2>/dev/null || true
    wait_for 15 clients_are none || true
    xprop -root -remove _VISTREL_NUDGE
  fi
  {
    echo "DISPLAY=$DISPLAY"
    echo "XDG_RUNTIME_DIR=$XDG_RUNTIME_DIR"
  } >"$dir/env"
  cat "$dir/env"
  echo "SESSION_DIR=$dir"
  ;;
env)
  [[ -n "$dir" && -f "$dir/env" ]] || { echo "x11-session: no session in '$dir'" >&2; exit 1; }
  cat "$dir/env"
  echo "SESSION_DIR=$dir"
  ;;
stop)
  [[ -n "$dir" ]] || usage
  [[ -f "$dir/openbox.pid" ]] && stop_pid "$(cat "$dir/openbox.pid")"
  [[ -f "$dir/xvfb.pid" ]] && stop_pid "$(cat "$dir/xvfb.pid")"
  rm -f "$dir/openbox.pid" "$dir/xvfb.pid" "$dir/env"
  ;;
*) usage ;;
esac
