# shellcheck shell=bash disable=SC2154
# Falsifies what a checker reads, to be sourced. Expects the files in $work and a function "check"
# that runs the checker, and counts in $failures.

# expect STATUS TEXT WHAT FILE SED-PROGRAM: checks the run with the file so changed.
expect() {
  local expected=$1 text=$2 what=$3 file=$4 program=$5 output status=0
  cp "$work/$file" "$work/kept"
  sed -i -E "$program" "$work/$file"
  if cmp -s "$work/kept" "$work/$file"; then
    echo "$what: nothing was falsified"
    failures=$((failures + 1))
  fi
  output=$(check 2>&1) || status=$?
  mv "$work/kept" "$work/$file"
  if ((status != expected)) || ! grep -qF -- "$text" <<<"$output"; then
    printf '%s: status %d, said: %s\n' "$what" "$status" "$output"
    failures=$((failures + 1))
  fi
}
