# Which files are sources of our own. A new folder counts without being named anywhere.
# shellcheck shell=bash

# cpp_sources: the paths of all C++ files below the current directory, each ended by a NUL. What is built or fetched is
# not ours.
cpp_sources() {
  find . \( -path './build*' -o -path './.*' \) -prune -o \
    -type f \( -name '*.h' -o -name '*.cc' -o -name '*.cpp' \) -printf '%P\0' | sort -z
}
