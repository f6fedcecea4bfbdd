# Sourced by the other scripts: the root of the repository, and a way to run a command that is silent while all is well.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

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
