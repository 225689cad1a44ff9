# Which files of the tree a check is for. Needs the top of the tree as working directory.
# shellcheck shell=bash

# find_files <name ending> <pattern>: sets `files` to the files with that ending and those with a line like the pattern
# among their first three. Built and downloaded files are left out.
find_files() {
  # shellcheck disable=SC2016 # fields of awk, not variables
  mapfile -d '' -t files < <(
    find . \( -path ./.git -o -path ./.deps -o -path './build*' -o -name __pycache__ \) -prune -o -type f -print0 |
      LC_ALL=C sort -z |
      LC_ALL=C xargs -0 awk -v ending="$1" -v pattern="$2" '
        FNR > 3 { nextfile }
        $0 ~ pattern || (FNR == 1 && substr(FILENAME, length(FILENAME) - length(ending) + 1) == ending) {
          printf "%s%c", FILENAME, 0
          nextfile
        }'
  )
  wait "$!"
  [[ ${#files[@]} -gt 0 ]] || {
    printf '%s: no files found\n' "${0##*/}" >&2
    exit 1
  }
}
