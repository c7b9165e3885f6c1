#!/usr/bin/env bash
# How long the command line takes to start, print and exit, beside the floor: a program built
# the same way that links only Qt Core and prints a line (bench/cli_hello.cpp).
#
# In a throwaway home with the sync domain added, runs interleaved: the floor, `vaskel --version`,
# `vaskel --refresh` and the listing (`vaskel --list`), ROUNDS times each after a few unmeasured
# rounds, and prints each one's median wall time and its ratio to the floor.
# Usage: bench/cli_startup.sh [build-dir]   (ROUNDS=300 by default; the build directory needs
# -DVASKEL_BENCH=ON -DVASKEL_TESTS=ON, which are the defaults)
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
rounds=${ROUNDS:-300}

targets=(vaskel vaskel-test-home bench_cli_hello bench_startup_timer)
if ! cmake --build "$build" -j "${JOBS:-2}" --target "${targets[@]}"; then
  echo "cli_startup: cannot build ${targets[*]} in $build; configure it with" \
    "-DVASKEL_BENCH=ON -DVASKEL_TESTS=ON" >&2
  exit 1
fi

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
# The environment the end-to-end tests give the program: a throwaway home (the preloaded shim
# answers the user database with it), no display and no session bus.
run=(env -i "PATH=$PATH" "LANG=${LANG:-C.UTF-8}" "HOME=$home" "VASKEL_TEST_HOME=$home"
  "XDG_CONFIG_HOME=$home/.config" "XDG_DATA_HOME=$home/.local/share"
  "XDG_STATE_HOME=$home/.local/state" "LD_PRELOAD=$build/libvaskel-test-home.so")

mkdir -p "$home/.vaskel"
echo '{"account_email": "me@example.com"}' >"$home/.vaskel/config.json"
"${run[@]}" "$build/vaskel" --add >/dev/null

"${run[@]}" "$build/bench_startup_timer" "$rounds" \
  qt-core-only "$build/bench_cli_hello" -- \
  --version "$build/vaskel" --version -- \
  --refresh "$build/vaskel" --refresh -- \
  listing "$build/vaskel" --list
