# Which files of the tree a check is for. Needs the top of the tree as working directory.
# shellcheck shell=bash

# Built and downloaded files are left out. A new folder counts without being named anywhere.
NOT_OURS=(\( -path ./.git -o -path ./.deps -o -path './build*' -o -name __pycache__ \) -prune)

# require_files: there is something to check.
require_files() {
  [[ ${#files[@]} -gt 0 ]] || {
    printf '%s: no files found\n' "${0##*/}" >&2
    exit 1
  }
}

# find_cpp_files: sets `files` to all C++ sources and headers.
find_cpp_files() {
  mapfile -d '' -t files < <(
    find . "${NOT_OURS[@]}" -o -type f \( -name '*.h' -o -name '*.cc' -o -name '*.cpp' \) -printf '%P\0' | sort -z
  )
  wait "$!"
  require_files
}

# find_files <name ending> <pattern>: sets `files` to the files with that ending and those with a line like the pattern
# among their first three.
find_files() {
  # shellcheck disable=SC2016 # fields of awk, not variables
  mapfile -d '' -t files < <(
    find . "${NOT_OURS[@]}" -o -type f -print0 |
      LC_ALL=C sort -z |
      LC_ALL=C xargs -0 awk -v ending="$1" -v pattern="$2" '
        FNR > 3 { nextfile }
        $0 ~ pattern || (FNR == 1 && substr(FILENAME, length(FILENAME) - length(ending) + 1) == ending) {
          printf "%s%c", FILENAME, 0
          nextfile
        }'
  )
  wait "$!"
  require_files
}
