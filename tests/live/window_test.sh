#!/usr/bin/env bash
# Runs PROGRAM, and what follows, on an X display of its own. Skipped (77) where Xvfb or xdotool are
# missing. usage: window_test.sh PROGRAM [ARGUMENT...]
set -euo pipefail

for tool in Xvfb xdotool; do
    command -v "$tool" >/dev/null || { echo "window_test: no $tool"; exit 77; }
done
folder=$(mktemp -d)
mkfifo "$folder/display"
Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp -noreset 3>"$folder/display" 2>/dev/null &
server=$!
trap 'kill $server; rm -r "$folder"' EXIT
read -r -t 30 number <"$folder/display"
DISPLAY=:$number "$@"
