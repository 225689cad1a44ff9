#!/bin/bash
# The daemon builds and links, unchanged, against a platform that was installed outside the tree,
# needs nothing below that platform, and keeps its type checks in every build type. The platform's
# installed headers need nothing of the tree.
# usage: system_platform_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail

SOURCE="$1"
BUILD="$2"
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT
PREFIX="$WORK/stage/opt/platform"
ALONE="$WORK/alone"

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# quietly <command>...: its output only if it fails.
quietly() {
  "$@" >"$WORK/log" 2>&1 || {
    cat "$WORK/log" >&2
    fail "$*"
  }
}

installed_daemon() { find "$1" -type f -name dhcp-relay-app -perm -u+x | head -n 1; }

# Of the whole read, then of a commit's changes.
TYPE_CHECKS=(
  '(&instance_data[4])->type == C_BOOL' '(&instance_data[5])->type == C_BOOL'
  '(&instance_data[6])->type == C_BOOL' '(&instance_data[7])->type == C_ENUM_VALUE'
  '(&if_option_data[2])->type == C_BOOL' '(&if_option_data[3])->type == C_BOOL'
  '(&if_option_data[4])->type == C_BOOL' '(&if_option_data[5])->type == C_ENUM_VALUE'
  '(&server_addr_data[0])->type == C_IPV4' '(&vl_vrf_id)->type == C_UINT32'
  '(leaf)->type == C_XMLTAG' '(&kp->v[3][0])->type == C_XMLTAG'
  '(&kp->v[0][0])->type == C_BUF' '(&kp->v[1][0])->type == C_BUF'
  '(&kp->v[2][0])->type == C_BUF' '(&kp->v[3][0])->type == C_BUF'
  '(&kp->v[4][0])->type == C_BUF' '(&kp->v[0][0])->type == C_IPV4'
  '(new_value)->type == C_BOOL' '(new_value)->type == C_ENUM_VALUE'
  '(new_value)->type == C_BUF' '(new_value)->type == C_INT32' '(old_value)->type == C_INT32'
  '(new_value)->type == C_IPV4' '(new_value)->type == C_IPV4_AND_PLEN'
)

# keeps_type_checks <binary>: the texts of the asserts that guard configuration values, each as a
# string of its own, since some begin as others do.
keeps_type_checks() {
  local text
  for text in "${TYPE_CHECKS[@]}"; do
    grep -azqxF -- "$text" "$1" || fail "$1 has lost the check '$text'"
  done
}

# needs_only_the_platform <binary>
needs_only_the_platform() {
  local library libraries
  libraries="$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p')"
  [[ -n $libraries ]] || fail "$1 needs no library at all"
  for library in $libraries; do
    case "$library" in
      libnettypes.so.* | liblimidmgr.so.* | libvxmidware.so.* | libconfd.so.*) ;;
      libvxconfd.so.* | libdhcp_user.so.* | libzlog.so.*) ;;
      libstdc++.so.* | libgcc_s.so.* | libc.so.* | libm.so.* | ld-linux*.so.*) ;;
      *) fail "$1 needs $library" ;;
    esac
  done
}

# finds_its_libraries <binary>: without help from the environment, and none in the build directory.
finds_its_libraries() {
  local found
  found="$(env -u LD_LIBRARY_PATH ldd "$1")"
  if grep -F 'not found' <<<"$found"; then
    fail "$1 does not find its libraries"
  fi
  if grep -F -e "$BUILD/" -e "$SOURCE/" <<<"$found"; then
    fail "$1 takes libraries from the tree"
  fi
}

# headers_stand_alone <include directory>: each header compiles by itself, those of C interfaces in C.
headers_stand_alone() {
  local header
  while IFS= read -r header; do
    quietly c++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$1" -include "$header" \
      -x c++ /dev/null
  done < <(find "$1" -name '*.h' -printf '%P\n')
  for header in confd_lib.h confd_cdb.h vxmw/vxmw.h limidmgr/limidmgr.h; do
    quietly cc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$1" -include "$header" \
      -x c /dev/null
  done
}

# build_alone <build type>: the daemon by itself, against the installed platform.
build_alone() {
  rm -rf "$ALONE"
  quietly cmake -S "$SOURCE" -B "$ALONE" -G Ninja -DVX_PLATFORM=system -DCMAKE_BUILD_TYPE="$1" \
    -DCMAKE_PREFIX_PATH="$PREFIX"
  quietly cmake --build "$ALONE" --parallel 2
  if grep -F "$SOURCE/platform" "$ALONE/compile_commands.json"; then
    fail "the daemon was compiled with headers of the bundled platform"
  fi
}

# Staged, so that nothing is written outside whatever the build was configured for.
quietly env DESTDIR="$WORK/stage" cmake --install "$BUILD" --prefix /opt/platform
daemon="$(installed_daemon "$PREFIX")"
[[ -n $daemon ]] || fail "no dhcp-relay-app was installed"
keeps_type_checks "$daemon"
needs_only_the_platform "$daemon"
finds_its_libraries "$daemon"
headers_stand_alone "$PREFIX/include"

for type in Release MinSizeRel; do
  build_alone "$type"
  keeps_type_checks "$ALONE/bin/dhcp-relay-app"
  needs_only_the_platform "$ALONE/bin/dhcp-relay-app"
  finds_its_libraries "$ALONE/bin/dhcp-relay-app"
done

quietly env DESTDIR="$WORK/second" cmake --install "$ALONE"
daemon="$(installed_daemon "$WORK/second")"
[[ -n $daemon ]] || fail "the daemon alone installs nothing"
keeps_type_checks "$daemon"
finds_its_libraries "$daemon"
printf 'ok\n'
