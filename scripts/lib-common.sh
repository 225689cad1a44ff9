# Messages, logs and checks that the set-up scripts share. Needs ROOT, the top of the tree.
# shellcheck shell=bash

DEPS="$ROOT/.deps"
LOGS="$DEPS/log"

say() { printf 'setup: %s\n' "$*"; }

# die <what failed> <what to do>
die() {
  printf 'setup: %s: %s\n' "$1" "$2" >&2
  exit 1
}

# logged <log name> <command>...: its output goes to the log alone. The lock is not passed on, lest
# a service that a package starts should hold it.
logged() {
  local log="$LOGS/$1.log"
  shift
  mkdir -p "$LOGS"
  printf '+ %s\n' "$*" >>"$log"
  "$@" >>"$log" 2>&1 </dev/null 9>&-
}

# must <log name> <what failed> <what to do> <command>...
must() {
  local name="$1" failed="$2" remedy="$3"
  shift 3
  logged "$name" "$@" || die "$failed" "$remedy (log: .deps/log/$name.log)"
}

need_root() {
  [[ $EUID -eq 0 ]] || die "$1" "run scripts/setup as root"
}

# value <variable name>: the variable's content, empty if there is no such variable.
value() { printf '%s' "${!1:-}"; }

# check_sha256 <file> <sum>
check_sha256() {
  local sum
  sum="$(sha256sum "$1")"
  sum="${sum%% *}"
  [[ $sum == "$2" ]] || die "${1#"$ROOT/"} has sha256 $sum, deps/pins says $2" \
    "remove it and run again; if the sum stays, do not use it unless the pin is known to be wrong"
}
