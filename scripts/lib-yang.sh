# libyang, sysrepo and zlog: the libraries that not every supported release has.
# shellcheck shell=bash

PREFIX="$DEPS/prefix"
CACHE="$DEPS/cache"
WORK="$DEPS/work"
# Where a system-wide installation puts these libraries: the paths compiled into them point there and
# so never into somebody's working tree.
INSTALLED_AT="/usr/lib/dhcp-relay-app/deps"

yang_packages() {
  value "LIBYANG_PACKAGES_$RELEASE"
  printf ' '
  value "SYSREPO_PACKAGES_$RELEASE"
}

yang_is_packaged() { [[ -n $(value "LIBYANG_PACKAGES_$RELEASE") ]]; }

# prefix_key: changes with everything that decides what is in the prefix.
prefix_key() {
  {
    grep -E '^(YANG|LIBYANG|SYSREPO)' "$ROOT/deps/pins"
    cat "$ROOT/scripts/lib-yang.sh"
    printf '%s %s\n' "$RELEASE" "$ARCH"
  } | sha256sum | cut -c1-32
}

prefix_ready() {
  [[ -f $PREFIX/.stamp && $(<"$PREFIX/.stamp") == "$(prefix_key)" ]] || return 1
  ! yang_is_packaged || yang_packages_ready
}

yang_packages_ready() {
  # shellcheck disable=SC2046 # a list of packages in words
  has_upstream "$LIBYANG_VERSION" $(value "LIBYANG_PACKAGES_$RELEASE") &&
    has_upstream "$SYSREPO_VERSION" $(value "SYSREPO_PACKAGES_$RELEASE")
}

zlog_ready() {
  # shellcheck disable=SC2086 # a list of packages in words
  has_upstream "${ZLOG_VERSION%-*}" $ZLOG_PACKAGES
}

# fetch_archive <source package> <upstream version> <file> <sha256>: into the cache, checked.
fetch_archive() {
  local package="$1" version="$2" file="$3" sum="$4" revision
  mkdir -p "$CACHE"
  if [[ ! -f $CACHE/$file ]]; then
    ensure_yang_index
    revision="$(newest_revision source "$package" "$version")"
    rm -rf "$WORK/fetch"
    mkdir -p "$WORK/fetch"
    say "fetching $package $version"
    must "$package" "fetching the source of $package $version" "check the network, then run again" \
      in_directory "$WORK/fetch" \
      apt_private apt-get source --download-only --tar-only "$package=$revision"
    [[ -f $WORK/fetch/$file ]] || die "the source package $package $revision has no $file" \
      "correct the archive name in deps/pins"
    check_sha256 "$WORK/fetch/$file" "$sum"
    mv "$WORK/fetch/$file" "$CACHE/$file"
  fi
  check_sha256 "$CACHE/$file" "$sum"
}

in_directory() (
  cd "$1" || exit 1
  shift
  "$@"
)

# build_archive <name> <file> <cmake option>...: installs into the new prefix.
build_archive() {
  local name="$1" file="$2" source="$WORK/$1" remedy="see the log; 'make distclean' starts afresh"
  shift 2
  say "building $name"
  rm -rf "$source"
  mkdir -p "$source"
  must "$name" "unpacking $file" "$remedy" tar -xf "$CACHE/$file" -C "$source" --strip-components=1
  must "$name" "configuring $name" "$remedy" env PKG_CONFIG_PATH="$NEW_PREFIX/lib/pkgconfig" \
    cmake -S "$source" -B "$source/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_FLAGS="-ffile-prefix-map=$WORK=." \
    -DCMAKE_INSTALL_PREFIX="$INSTALLED_AT" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_INSTALL_RPATH="\$ORIGIN/../lib" -DCMAKE_PREFIX_PATH="$NEW_PREFIX" \
    -DENABLE_TESTS=OFF -DENABLE_VALGRIND_TESTS=OFF "$@"
  must "$name" "building $name" "$remedy" cmake --build "$source/build" --parallel
  must "$name" "installing $name" "$remedy" \
    env DESTDIR="$WORK/stage" cmake --install "$source/build"
  # shellcheck disable=SC2016 # a variable of pkg-config
  sed -i 's|^prefix=.*|prefix=${pcfiledir}/../..|' "$NEW_PREFIX"/lib/pkgconfig/*.pc
}

build_prefix() {
  fetch_archive libyang "$LIBYANG_VERSION" "$LIBYANG_ARCHIVE" "$LIBYANG_SHA256"
  fetch_archive sysrepo "$SYSREPO_VERSION" "$SYSREPO_ARCHIVE" "$SYSREPO_SHA256"
  build_archive libyang "$LIBYANG_ARCHIVE" -DENABLE_YANGLINT_INTERACTIVE=OFF
  build_archive sysrepo "$SYSREPO_ARCHIVE" -DENABLE_EXAMPLES=OFF -DENABLE_SYSREPO_PLUGIND=OFF \
    -DSYSREPO_UMASK=002
}

# link_prefix: the packages' tools, where those of a built prefix would be.
link_prefix() {
  local tool
  mkdir -p "$NEW_PREFIX/bin"
  for tool in sysrepoctl sysrepocfg yanglint; do
    [[ -x /usr/bin/$tool ]] || die "the packages $(yang_packages) brought no $tool" \
      "correct the package lists in deps/pins"
    ln -s "/usr/bin/$tool" "$NEW_PREFIX/bin/$tool"
  done
}

install_yang_packages() {
  local package version wanted=()
  yang_packages_ready && return
  need_root "libyang $LIBYANG_VERSION and sysrepo $SYSREPO_VERSION are not installed"
  ensure_yang_index
  for package in $(yang_packages); do
    version="$LIBYANG_VERSION"
    [[ $package != *sysrepo* ]] || version="$SYSREPO_VERSION"
    version="$(newest_revision binary "$package" "$version")"
    wanted+=("$package=$version")
  done
  say "installing ${wanted[*]}"
  must apt "installing ${wanted[*]}" "check the network and the package sources, then run again" \
    apt_private apt-get install -y --no-install-recommends "${wanted[@]}"
}

# The index of the suites that hold libyang and sysrepo is read once, and only if something is fetched.
ensure_yang_index() {
  [[ ${#APT_PRIVATE[@]} -eq 0 ]] || return 0
  say "reading the package index of $YANG_SUITES"
  if yang_is_packaged; then
    apt_private_begin own "${YANG_SUITES#"$RELEASE "}"
  else
    apt_private_begin other "$YANG_SUITES"
  fi
}

# setup_prefix: the prefix is made beside the old one and takes its place when it is complete.
setup_prefix() {
  prefix_ready && return
  rm -rf "$WORK"
  NEW_PREFIX="$WORK/stage$INSTALLED_AT"
  mkdir -p "$NEW_PREFIX"
  if yang_is_packaged; then
    install_yang_packages
    link_prefix
  else
    build_prefix
  fi
  prefix_key >"$NEW_PREFIX/.stamp"
  [[ ! -d $PREFIX ]] || mv -T "$PREFIX" "$WORK/old"
  mv -T "$NEW_PREFIX" "$PREFIX"
  rm -rf "$WORK"
}

# fetch_zlog <package>: its file in the cache, checked; prints the path.
fetch_zlog() {
  local package="$1" file="$1_${ZLOG_VERSION}_$ARCH.deb" sum
  sum="$(value "ZLOG_SHA256_${package//-/_}_$ARCH")"
  mkdir -p "$CACHE"
  if [[ ! -f $CACHE/$file ]]; then
    must zlog "fetching $package $ZLOG_VERSION" \
      "check the network and the pin in deps/pins, then run again" \
      in_directory "$CACHE" apt_private apt-get download "$package=$ZLOG_VERSION"
  fi
  [[ -z $sum ]] || check_sha256 "$CACHE/$file" "$sum"
  printf '%s\n' "$CACHE/$file"
}

setup_zlog() {
  local package file files=()
  zlog_ready && return
  [[ $RELEASE != "$ZLOG_RELEASE" ]] || die "zlog ${ZLOG_VERSION%-*} is not what $RELEASE installed" \
    "move ZLOG_VERSION in deps/pins to the installed version"
  need_root "zlog $ZLOG_VERSION is not installed"
  for package in $ZLOG_PACKAGES; do
    [[ -f $CACHE/${package}_${ZLOG_VERSION}_$ARCH.deb ]] || ensure_yang_index
    file="$(fetch_zlog "$package")"
    files+=("$file")
  done
  say "installing zlog $ZLOG_VERSION"
  apt_install "${files[@]}"
}
