# Debian packages: what is missing, installing it, and looking into another release.
# shellcheck shell=bash

APT_DIR="$DEPS/apt"
APT_PATIENT=(-o DPkg::Lock::Timeout=300 -o Acquire::Retries=3)
APT_PRIVATE=()

# installed_version <package>: empty if it is not installed.
installed_version() {
  # shellcheck disable=SC2016 # fields of dpkg-query, not variables
  dpkg-query -W -f '${db:Status-Status} ${Version}\n' "$1" 2>/dev/null |
    sed -n 's/^installed //p' | head -n 1
}

# missing_packages <package>...: those that are not installed, one a line.
missing_packages() {
  local known package
  # shellcheck disable=SC2016 # fields of dpkg-query, not variables
  known=" $(dpkg-query -W -f '${Package}/${db:Status-Status} ' "$@" 2>/dev/null || true)"
  for package in "$@"; do
    [[ $known == *" $package/installed "* ]] || printf '%s\n' "$package"
  done
}

# has_upstream <version> <package>...: each is installed in a revision of that upstream version.
has_upstream() {
  local version="$1" package
  shift
  for package in "$@"; do
    [[ $(installed_version "$package") == "$version"-* ]] || return 1
  done
}

# Some packages bring servers that the tests start by hand; none is to start by itself meanwhile.
POLICY=/usr/sbin/policy-rc.d
POLICY_MARK="# Written by the set-up of dhcp-relay-app."

# write_policy <process>: forbids to start services for as long as that process lives. What ends the set-up may keep it
# from removing the file, which then forbids nothing. Somebody else's policy is left alone.
write_policy() {
  local start
  [[ ! -e $POLICY ]] || grep -qF "$POLICY_MARK" "$POLICY" || return 0
  start="$(sed 's/.*) //' "/proc/$1/stat" | cut -d ' ' -f 20)"
  rm -f "$POLICY"
  cat >"$POLICY" <<EOF
#!/bin/sh
$POLICY_MARK
# 101: not to be started; 104: as without this file. The process is known by its start time, too.
set -- \$(sed 's/.*) //' /proc/$1/stat 2>/dev/null)
[ "\$1" = Z ] || [ "\${20}" != $start ] || exit 101
exit 104
EOF
  chmod 755 "$POLICY"
}

# remove_policy: unless a package manager that needs it still runs, such as one whose set-up was killed.
remove_policy() {
  local status=0
  grep -qsF "$POLICY_MARK" "$POLICY" || return 0
  "$POLICY" || status=$?
  [[ $status -eq 101 ]] || rm -f "$POLICY" 2>/dev/null || true
}

# without_services <command>...: no service starts while it runs.
without_services() (
  write_policy "$BASHPID"
  exec "$@"
)

# apt_install <package or file>...: from the machine's own sources.
apt_install() {
  must apt "installing $*" "check the network and the package sources, then run again" \
    without_services env DEBIAN_FRONTEND=noninteractive apt-get "${APT_PATIENT[@]}" \
    install -y --no-install-recommends "$@"
  remove_policy
}

# A source that fails here may be one that nothing is needed from: what matters fails later.
apt_update() {
  logged apt apt-get "${APT_PATIENT[@]}" update ||
    say "apt-get update reported errors, going on with what there is (log: .deps/log/apt.log)"
}

# debian_entry: where the machine names its own release's main archive, as FILE:NUMBER.
debian_entry() {
  apt-get indextargets 'Created-By: Packages' \
    --format "\$(CODENAME)|\$(COMPONENT)|\$(LABEL)|\$(ORIGIN)|\$(SOURCESENTRY)" |
    awk -F'|' -v release="$RELEASE" '
      $1 == release && $2 == "main" && $3 != "Debian-Security" {
        if ($4 == "Debian" && !ours) ours = $5
        if (!any) any = $5
      }
      END { print ours ? ours : any }'
}

# derive_stanza <file> <number> <suites>: that stanza of a .sources file, for other suites.
derive_stanza() {
  grep -v '^#' "$1" | awk -v RS= -v number="$2" 'NR == number' | awk '
    /^[^ \t]/ {
      split(tolower($0), field, ":")
      keep = field[1] !~ /^(types|suites|components|enabled|architectures|targets|pdiffs)$/
    }
    keep'
  printf 'Types: deb deb-src\nSuites: %s\nComponents: main\n' "$3"
}

# derive_lines <file> <number> <suites>: that line of a sources.list file, for other suites.
derive_lines() {
  local line suite type
  line="$(sed -n "$2p" "$1")"
  [[ $line =~ ^deb[[:space:]]+(\[[^]]*\][[:space:]]+)?([^[:space:]]+)[[:space:]] ]] || return 1
  for suite in $3; do
    for type in deb deb-src; do
      printf '%s %s%s %s main\n' "$type" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" "$suite"
    done
  done
}

# derive_source <suites>: the machine's own Debian source with the suites in place of its own.
derive_source() {
  local entry file number
  entry="$(debian_entry)"
  if [[ -z $entry ]]; then
    apt_update
    entry="$(debian_entry)"
  fi
  [[ -n $entry ]] || die "no package source of Debian $RELEASE on this machine" \
    "add one under /etc/apt and make 'apt-get update' work, then run again"
  file="${entry%:*}"
  number="${entry##*:}"
  if [[ $file == *.sources ]]; then
    derive_stanza "$file" "$number" "$1" >"$APT_DIR/parts/derived.sources"
  else
    derive_lines "$file" "$number" "$1" >"$APT_DIR/parts/derived.list" ||
      die "the package source at $entry is not understood" "write it as a 'deb' line"
  fi
}

# apt_private_begin own|other <suites>: from here apt_private sees those suites, beside the machine's
# own sources or alone. The machine's configuration stays as it is.
apt_private_begin() {
  rm -rf "$APT_DIR"
  mkdir -p "$APT_DIR"/{parts,lists/partial,cache/archives/partial}
  if [[ $1 == own ]]; then
    find /etc/apt/sources.list /etc/apt/sources.list.d -maxdepth 1 -type f \
      \( -name '*.list' -o -name '*.sources' \) -exec cp {} "$APT_DIR/parts/" \; 2>/dev/null || true
  fi
  derive_source "$2"
  APT_PRIVATE=(-o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$APT_DIR/parts"
    -o "Dir::State::lists=$APT_DIR/lists" -o "Dir::Cache=$APT_DIR/cache"
    -o Dir::Etc::preferences=/dev/null -o Dir::Etc::preferencesparts=/dev/null
    -o APT::Default-Release= -o APT::Sandbox::User=root -o Acquire::Languages=none
    "${APT_PATIENT[@]}")
  must apt "reading the package index of $2" \
    "check the network and the package sources, then run again" \
    apt_private apt-get update -o APT::Update::Error-Mode=any
}

apt_private_end() {
  APT_PRIVATE=()
  rm -rf "$APT_DIR"
}

# apt_private <apt tool> <argument>...
apt_private() {
  local tool="$1"
  shift
  DEBIAN_FRONTEND=noninteractive "$tool" "${APT_PRIVATE[@]}" "$@"
}

# newest_revision source|binary <package> <upstream version>: the full version on offer.
newest_revision() {
  local offers
  if [[ $1 == source ]]; then
    offers="$(apt_private apt-cache showsrc --only-source "$2" 2>/dev/null | sed -n 's/^Version: //p')"
  else
    offers="$(apt_private apt-cache madison "$2" 2>/dev/null | awk -F'|' '{ gsub(/ /, "", $2); print $2 }')"
  fi
  grep -F -- "$3-" <<<"$offers" | grep "^${3//./\\.}-" | sort -uV | tail -n 1 ||
    die "$2 $3 is not offered any more (there is: $(tr '\n' ' ' <<<"$offers"))" \
      "move the pin of $2 in deps/pins to a version on offer"
}
