#!/bin/bash
# No file of the daemon that checks or logs compiles with NDEBUG, which would remove its type checks.
# usage: ndebug_test.sh SOURCE_DIR COMPILER FLAG...
set -euo pipefail

SOURCE="$1"
shift
COMPILE=("$@" -fsyntax-only)
MESSAGE='error: .*NDEBUG removes the type checks of configuration values'

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

for file in dhcp_relay_app/dhcp_relay_cfg_handler.cc dhcp_relay_app/main.cc lib/logger.cc; do
  "${COMPILE[@]}" "$SOURCE/src/$file" || fail "$file does not compile as it is"
  if output="$("${COMPILE[@]}" -DNDEBUG "$SOURCE/src/$file" 2>&1)"; then
    fail "$file compiles with NDEBUG"
  fi
  grep -q "$MESSAGE" <<<"$output" || fail "$file with NDEBUG says:" "$output"
done
printf 'ok\n'
