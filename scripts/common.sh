# Sourced by the other scripts: the root of the repository, a way to run a command silently unless it fails, and the
# build.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Builds of other clones of this repository share the compiler cache.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

# Runs a command with its output kept in a log, and prints the log only when the command fails.
quietly() { # LOG COMMAND [ARGUMENT...]
  local log=$1 status=0
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 </dev/null || status=$?
  if [ "$status" -ne 0 ]; then
    tail -n 200 "$log" >&2
    echo "failed with status $status: $*" >&2
    echo "whole log: $log" >&2
  fi
  return "$status"
}

# Builds a preset into out/PRESET, after installing what is missing; everything unless a TARGET is given.
build() { # PRESET [TARGET...]
  local preset=$1 begin targets=()
  shift
  [ $# -eq 0 ] || targets=(--target "$@")
  "$root/scripts/setup"
  echo "build: $preset${1:+ ($*)}"
  begin=$SECONDS
  (
    cd "$root" &&
      quietly "out/$preset/configure.log" cmake --preset "$preset" &&
      quietly "out/$preset/build.log" cmake --build --preset "$preset" "${targets[@]}"
  ) || return
  echo "build: out/$preset is up to date, $((SECONDS - begin)) s"
}
