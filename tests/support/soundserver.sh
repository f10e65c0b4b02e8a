#!/usr/bin/env bash
# A private sound server for the tests, with nothing shared with the machine's own.
#
#   soundserver.sh start  <dir> [pipewire|pulseaudio]
#   soundserver.sh stop   <dir>
#   soundserver.sh pause  <dir>    the server clients talk to goes away (pipewire-pulse or pulseaudio)
#   soundserver.sh resume <dir>    ...and comes back, with a fresh "speakers" as the default output
#
# start brings up, under <dir>, a private XDG_RUNTIME_DIR and either PipeWire +
# pipewire-pulse + WirePlumber (with a private session bus, which WirePlumber needs) or a
# plain PulseAudio daemon, then loads a null sink "speakers" (48 kHz) and makes it the
# default output. Clients reach it with
#   XDG_RUNTIME_DIR=<dir>/run PULSE_SERVER=unix:<dir>/run/pulse/native
# stop ends every daemon it started, by the PIDs kept in <dir>, and removes the runtime folder.
# pause/resume reproduce a sound server restart (what a package upgrade or Bluetooth trouble
# does): every module loaded through it goes with it, so resume loads "speakers" again.
# Works as root without a desktop session.
set -u

cmd=${1:-}
dir=${2:-}
kind=${3:-pipewire}
[[ -n "$cmd" && -n "$dir" ]] || { echo "usage: $0 start|stop <dir> [pipewire|pulseaudio]" >&2; exit 2; }

run="$dir/run"
export XDG_RUNTIME_DIR="$run"
export PULSE_SERVER="unix:$run/pulse/native"
unset DBUS_SESSION_BUS_ADDRESS

alive() {   # running and not a zombie waiting to be reaped (read from /proc: no procps needed)
  local stat
  stat=$(cat "/proc/$1/stat" 2>/dev/null) || return 1
  stat=${stat##*) }
  [[ -n "$stat" && "${stat:0:1}" != Z ]]
}

stop_all() {
  local f pid
  for f in "$dir"/*.pid; do
    [[ -f "$f" ]] || continue
    pid=$(tr -dc '0-9' <"$f")
    if [[ -n "$pid" ]] && alive "$pid"; then
      kill "$pid" 2>/dev/null
      for _ in $(seq 1 100); do alive "$pid" || break; sleep 0.02; done
      alive "$pid" && kill -9 "$pid" 2>/dev/null
    fi
    rm -f "$f"
  done
}

wait_for() {   # wait_for <tries of 50 ms> <command...>
  local tries=$1; shift
  for _ in $(seq 1 "$tries"); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done
  return 1
}

default_is_speakers() { pactl get-default-sink 2>/dev/null | grep -qx speakers; }

stop_pid_file() {   # stop_pid_file <file>: ends that one daemon
  local f=$1 pid
  [[ -f "$f" ]] || return 0
  pid=$(tr -dc '0-9' <"$f")
  if [[ -n "$pid" ]] && alive "$pid"; then
    kill "$pid" 2>/dev/null
    for _ in $(seq 1 100); do alive "$pid" || break; sleep 0.02; done
    alive "$pid" && kill -9 "$pid" 2>/dev/null
    for _ in $(seq 1 100); do alive "$pid" || break; sleep 0.02; done
  fi
  rm -f "$f"
}

pipewire_env() {
  export DBUS_SESSION_BUS_ADDRESS="unix:path=$run/bus"
  export XDG_STATE_HOME="$dir/state" XDG_CONFIG_HOME="$dir/home/.config" HOME="$dir/home"
}

start_pulseaudio() {
  export PULSE_RUNTIME_PATH="$run/pulse" PULSE_STATE_PATH="$dir/state" HOME="$dir/home"
  mkdir -p -m 700 "$run/pulse"
  setsid pulseaudio -n --daemonize=no --exit-idle-time=-1 --disallow-exit --use-pid-file=no \
    --disable-shm=no -L "module-native-protocol-unix auth-anonymous=1 socket=$run/pulse/native" \
    -L "module-null-sink sink_name=speakers rate=48000 format=float32le" \
    -L module-always-sink </dev/null >>"$log" 2>&1 &
  echo $! >"$dir/pulseaudio.pid"
}

speakers_as_default() {   # after the server answers
  if [[ "$kind" == pipewire ]]; then
    pactl load-module module-null-sink sink_name=speakers rate=48000 >/dev/null
    # WirePlumber makes a new sink the default once it has seen it.
    wait_for 100 default_is_speakers || pactl set-default-sink speakers
  fi
  wait_for 100 default_is_speakers || pactl set-default-sink speakers
  wait_for 100 default_is_speakers
}

case "$cmd" in
start)
  mkdir -p "$dir"
  stop_all
  rm -rf "$run"
  mkdir -p -m 700 "$run"
  mkdir -p "$dir/state" "$dir/home"
  log="$dir/server.log"
  : >"$log"
  if [[ "$kind" == pipewire ]]; then
    dbus-daemon --session --address="unix:path=$run/bus" --fork --print-pid >"$dir/dbus.pid" 2>>"$log" || {
      echo "soundserver: dbus-daemon did not start" >&2; exit 1; }
    export DBUS_SESSION_BUS_ADDRESS="unix:path=$run/bus"
    # Keep WirePlumber's and PipeWire's state inside the test folder.
    pipewire_env
    setsid pipewire </dev/null >>"$log" 2>&1 &
    echo $! >"$dir/pipewire.pid"
    wait_for 100 test -S "$run/pipewire-0" || { echo "soundserver: pipewire did not start" >&2; stop_all; exit 1; }
    setsid pipewire-pulse </dev/null >>"$log" 2>&1 &
    echo $! >"$dir/pipewire-pulse.pid"
    setsid wireplumber </dev/null >>"$log" 2>&1 &
    echo $! >"$dir/wireplumber.pid"
  elif [[ "$kind" == pulseaudio ]]; then
    start_pulseaudio
  else
    echo "soundserver: unknown server '$kind'" >&2; exit 2
  fi
  wait_for 200 pactl info || { echo "soundserver: the server did not answer" >&2; cat "$log" >&2; stop_all; exit 1; }
  speakers_as_default || { echo "soundserver: no default sink 'speakers'" >&2; stop_all; exit 1; }
  echo "$kind" >"$dir/kind"
  ;;
stop)
  stop_all
  rm -rf "$run" "$dir/kind"
  ;;
pause)
  kind=$(cat "$dir/kind" 2>/dev/null) || { echo "soundserver: not running" >&2; exit 1; }
  if [[ "$kind" == pipewire ]]; then stop_pid_file "$dir/pipewire-pulse.pid"; else stop_pid_file "$dir/pulseaudio.pid"; fi
  ;;
resume)
  kind=$(cat "$dir/kind" 2>/dev/null) || { echo "soundserver: not running" >&2; exit 1; }
  log="$dir/server.log"
  if [[ "$kind" == pipewire ]]; then
    pipewire_env
    setsid pipewire-pulse </dev/null >>"$log" 2>&1 &
    echo $! >"$dir/pipewire-pulse.pid"
  else
    start_pulseaudio
  fi
  wait_for 200 pactl info || { echo "soundserver: the server did not come back" >&2; exit 1; }
  speakers_as_default || { echo "soundserver: no default sink 'speakers'" >&2; exit 1; }
  ;;
*)
  echo "usage: $0 start|stop|pause|resume <dir> [pipewire|pulseaudio]" >&2; exit 2 ;;
esac
exit 0
