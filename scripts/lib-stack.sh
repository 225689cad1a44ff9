# The datastore of a stack. Needs root, the top of the tree; yang, the models; dir, the stack's directory; save_timeout,
# in seconds; die; and the environment that names the datastore.
# shellcheck shell=bash disable=SC2154 # set by scripts/stack

# The hidden ones are of processes that were killed while they used the others under second names.
remove_shared_memory() {
  rm -rf "/dev/shm/$SYSREPO_SHM_PREFIX"_* "/dev/shm/${SYSREPO_SHM_PREFIX}sub_"* "/dev/shm/.$SYSREPO_SHM_PREFIX".*
}

# restore_datastore: undoes what a start left that was killed while it exchanged the datastores.
restore_datastore() {
  local old=$dir/sysrepo.old
  [ -d "$SYSREPO_REPOSITORY_PATH" ] || [ ! -d "$old" ] || mv -T "$old" "$SYSREPO_REPOSITORY_PATH"
  rm -rf "$old"
}

# install_models: makes a datastore of the present models. When they have changed, it is made beside the old one, takes
# over what that has saved, and replaces it at the end; models that refuse the saved configuration leave the old one in
# place. Not an upgrade of the old one: models are edited here without a new revision, and older ones come back.
install_models() {
  local models saved=$dir/saved.json new=$dir/sysrepo.new old=$dir/sysrepo.old
  models=$(cat "$yang"/*.yang | sha256sum)
  [ "$(cat "$dir/models" 2>/dev/null)" != "$models" ] || return 0
  rm -f "$saved"
  [ ! -e "$dir/models" ] || sysrepocfg --export="$saved" -d startup -f json ||
    die "cannot read the configuration that was saved in $SYSREPO_REPOSITORY_PATH"
  remove_shared_memory
  (make_datastore "$new" "$saved") || die "the datastore stays as it was"
  if [ -d "$SYSREPO_REPOSITORY_PATH" ]; then
    sync -f "$new"
    mv -T "$SYSREPO_REPOSITORY_PATH" "$old"
  fi
  mv -T "$new" "$SYSREPO_REPOSITORY_PATH"
  echo "$models" >"$dir/models"
  # The saver syncs what it writes itself: without the rest, a power cut would leave a configuration but no models.
  sync -f "$dir"
  rm -rf "$old"
}

# make_datastore REPOSITORY FILE: with the configuration in FILE, if there is one, as the saved one. In a subshell.
make_datastore() {
  local errors
  export SYSREPO_REPOSITORY_PATH=$1 SYSREPO_SHM_PREFIX=${SYSREPO_SHM_PREFIX}n
  trap remove_shared_memory EXIT
  rm -rf "$1"
  remove_shared_memory
  "$root/scripts/install-models" "$yang" >/dev/null || return 1
  if [ -s "$2" ] && ! errors=$(sysrepocfg --import="$2" -d startup -f json 2>&1); then
    rm -rf "$1"
    echo "stack: the models have changed and refuse the saved configuration ($2): $errors" >&2
    return 1
  fi
}

# save_configuration: what a saver that was killed has not saved. Shared memory that is damaged holds nobody up.
save_configuration() {
  ls "/dev/shm/${SYSREPO_SHM_PREFIX}"_* >/dev/null 2>&1 || return 0
  timeout -s KILL "$save_timeout" dhcp-relay-saved --once >>"$dir/saver.log" 2>&1 ||
    echo "stack: what shared memory held could not be saved; see $dir/saver.log" >&2
}

# recover_configuration: what was saved but not yet brought to the startup datastore. Nobody else uses the datastore yet.
recover_configuration() {
  timeout -s KILL "$save_timeout" dhcp-relay-saved --recover >>"$dir/saver.log" 2>&1 ||
    die "the configuration that was saved last cannot be restored; see $dir/saver.log"
}
