#!/usr/bin/env bash
# Installs the build in BUILD_DIR into a temporary prefix, builds the example host (the README's
# C++ quick start) against it with find_package and with pkg-config, and runs both against the
# installed test identity server: each must print a MID.
#   examples/check-installed.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "$1" && pwd)
work=$(mktemp -d)
server_pid=
cleanup() {
  [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
prefix=$work/prefix

# The example is the README's quick start, word for word.
readme_block=$(awk '/<!-- quick start: C\+\+ host/{marked=1} marked && /^```cpp$/{inside=1; next}
  inside && /^```$/{exit} inside' README.md)
if [ "$readme_block" != "$(cat examples/cpp-host/main.cpp)" ]; then
  echo "examples/cpp-host/main.cpp differs from the README's C++ quick start" >&2
  exit 1
fi

cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -S examples/cpp-host -B "$work/with-cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/with-cmake" >/dev/null

pc_dir=$(dirname "$(find "$prefix" -name velmora-identity.pc)")
# shellcheck disable=SC2046
g++ -std=c++17 -Wall -Wextra -Werror examples/cpp-host/main.cpp -o "$work/with-pkg-config" \
  $(PKG_CONFIG_PATH=$pc_dir pkg-config --cflags --libs velmora-identity)

"$prefix/bin/velmora-identity-server" > "$work/server.out" 2> "$work/server.err" &
server_pid=$!
for _ in $(seq 1 100); do
  grep -q '^port ' "$work/server.out" 2>/dev/null && break
  sleep 0.1
done
port=$(awk '/^port /{print $2}' "$work/server.out")
[ -n "$port" ] || { echo "the test identity server printed no port" >&2; exit 1; }

status=0
for host in "$work/with-cmake/velmora-cpp-host" "$work/with-pkg-config"; do
  run=$(mktemp -d "$work/run.XXXX")
  printf '{"ondaraCloud.org": "0123456789ABCDEF@VelmoraOrg", "ondaraCloud.server": "127.0.0.1:%s", "global.ssl": false}\n' \
    "$port" > "$run/velmora.json"
  output=$(cd "$run" && timeout 60 "$host" 2>&1) || true
  if grep -Eq '^MID [0-9]{38}$' <<<"$output"; then
    echo "$(basename "$host"): $(grep '^MID' <<<"$output")"
  else
    echo "$(basename "$host") printed no MID:" >&2
    echo "$output" >&2
    status=1
  fi
done
exit $status
