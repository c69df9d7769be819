#!/usr/bin/env bash
# Runs both programs, built in the directory given, and shows that the display follows the station.
#   try.sh BUILD_DIRECTORY
set -eu
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkfifo "$work/degrees"
"$build/station" "$work/socket" <"$work/degrees" &
station=$!
exec 3>"$work/degrees"
until [ -S "$work/socket" ]; do kill -0 "$station"; sleep 0.05; done
touch "$work/shown"
"$build/display" "$work/socket" >"$work/shown" 3>&- &
display=$!
waitFor() {
  until grep -qx "$1" "$work/shown"; do kill -0 "$display"; sleep 0.05; done
}
waitFor 20
echo 21.5 >&3
waitFor 21.5
exec 3>&-
wait "$station" "$display"
grep -qx 'tomatoes, drip, 40 l at 6, 61.5 % humidity' "$work/shown"
cat "$work/shown"
