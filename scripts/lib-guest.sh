# The system that the tests of tests/vm boot in a virtual machine: this release's packages, unpacked into a disk image.
# shellcheck shell=bash

GUEST="$DEPS/guest"
GUEST_INIT="$ROOT/tests/vm/support/guest-init"

# guest_is_wanted <purpose>: the programs that are tested run in the machine as they are, so it has this architecture.
guest_is_wanted() { [[ $1 =~ ^(test|coverage)$ && $ARCH == amd64 ]]; }

# guest_key: changes with everything that decides what is in the image.
guest_key() {
  {
    grep '^GUEST' "$ROOT/deps/pins"
    cat "$ROOT/scripts/lib-guest.sh" "$GUEST_INIT"
    printf '%s %s\n' "$RELEASE" "$ARCH"
  } | sha256sum | cut -c1-32
}

guest_ready() {
  ! guest_is_wanted "$1" || [[ -f $GUEST/.stamp && $(<"$GUEST/.stamp") == "$(guest_key)" ]]
}

# unpack_guest <directory>: the packages' files. None of their scripts runs, so what these would do is done here.
unpack_guest() {
  local source="$APT_DIR/parts/derived" files="$1" merge version python
  rm -rf "$APT_DIR"
  mkdir -p "$APT_DIR/parts"
  derive_source "$RELEASE"
  source="$(ls "$source".*)"
  apt-config dump | grep '^Acquire::' >"$APT_DIR/options"
  # shellcheck disable=SC2016 # a command of mmdebstrap's
  merge='for d in bin sbin lib lib64; do mkdir -p "$1/usr/$d"; ln -sn "usr/$d" "$1/$d"; done'
  must guest "unpacking the packages of the guest" "check the network and the package sources, then run again" \
    mmdebstrap --mode=root --variant=extract --format=directory --setup-hook="$merge" \
    --aptopt="$APT_DIR/options" --include="${GUEST_PACKAGES//[[:space:]]/,}" "$RELEASE" "$files" "$source"
  version="$(ls "$files/usr/lib/modules")"
  must guest "listing the modules of the guest's kernel" "see the log" chroot "$files" depmod "$version"
  python="$(basename "$files"/usr/lib/python3.*)"
  must guest "compiling the guest's Python" "see the log" chroot "$files" python3 -m compileall -q "/usr/lib/$python"
  install -m 755 "$GUEST_INIT" "$files/init"
  mkdir -p "$files"/{dev,proc,sys,run,tmp,root,opt/dhcp-relay-app}
  ln -sf mawk "$files/usr/bin/awk"
  cp "$files/usr/share/base-passwd/passwd.master" "$files/etc/passwd"
  cp "$files/usr/share/base-passwd/group.master" "$files/etc/group"
  printf 'dhcp-manager:x:999:999::/nonexistent:/usr/sbin/nologin\n' >>"$files/etc/passwd"
  printf 'dhcp-manager:x:999:\n' >>"$files/etc/group"
}

# pack_guest <directory> <image>: without what nobody reads there.
pack_guest() {
  local files="$1" size
  mv "$files"/boot/vmlinuz-* "$WORK/guest/vmlinuz"
  rm -rf "${files:?}/boot" "$files/var/lib/apt" "$files/var/cache" "$files"/usr/share/{doc,man,locale,info,perl*} \
    "$files"/usr/lib/*/perl* "$files"/usr/lib/modules/*/kernel/{arch,fs,sound,drivers/{gpu,scsi,net/ethernet}}
  size="$(du -sm "$files" | cut -f 1)"
  must guest "making the disk of the guest" "see the log" \
    mke2fs -t ext4 -O ^has_journal -m 0 -d "$files" "$2" "$((size + size / 4 + 16))M"
}

# setup_guest <purpose>: made beside the old one, whose place it takes when it is complete.
setup_guest() {
  ! guest_ready "$1" || return 0
  need_root "the guest of the tests in a virtual machine is missing"
  say "unpacking the guest of the tests in a virtual machine"
  rm -rf "$WORK"
  mkdir -p "$WORK/guest"
  unpack_guest "$WORK/root"
  pack_guest "$WORK/root" "$WORK/guest/root.img"
  guest_key >"$WORK/guest/.stamp"
  rm -rf "$GUEST"
  mv -T "$WORK/guest" "$GUEST"
  rm -rf "$WORK"
}
