# Helpers of the tool's end-to-end tests (which set $tev): a scratch directory
# and assertions that count failures instead of stopping at the first one.

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

note_failure() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# expect_status N DESCRIPTION CMD...: runs CMD, leaving $status,
# $scratch/stdout and $scratch/stderr, and expects exit status N.
expect_status() {
  local want=$1 what=$2
  shift 2
  set +e
  "$@" >"$scratch/stdout" 2>"$scratch/stderr"
  status=$?
  set -e
  [[ $status -eq $want ]] || note_failure "$what: exit $status, expected $want; stderr: $(cat "$scratch/stderr")"
}

# expect_stderr_line DESCRIPTION TEXT: stderr is exactly one line containing TEXT.
expect_stderr_line() {
  if [[ $(wc -l <"$scratch/stderr") -ne 1 ]] || ! grep -qF -- "$2" "$scratch/stderr"; then
    note_failure "$1: expected one stderr line with '$2', got: $(cat "$scratch/stderr")"
  fi
}

# expect_json DESCRIPTION PYTHON_EXPRESSION [FILE]: FILE (the last stdout)
# parses as JSON and the expression holds with the document bound to `d`.
expect_json() {
  python3 - "${3:-$scratch/stdout}" "$2" <<'PY' || note_failure "$1: JSON check failed: $2"
import json, sys
with open(sys.argv[1]) as f:
    d = json.load(f)
if not eval(sys.argv[2]):
    print(json.dumps(d, indent=1), file=sys.stderr)
    sys.exit(1)
PY
}

# json_ok DESCRIPTION PYTHON_EXPRESSION ARGS...: `$tev ARGS` succeeds and
# its JSON passes expect_json.
json_ok() {
  expect_status 0 "$1" "$tev" "${@:3}"
  expect_json "$1" "$2"
}

expect_same() { cmp -s "$2" "$3" || note_failure "$1: $2 and $3 differ"; }

# The file's bytes (of a file over 64 MiB, mostly sparse here, its size and
# change time) and whether an undo file stands beside it.
state_of() {
  if (($(stat -c %s "$1" 2>/dev/null || echo 0) > 1 << 26)); then stat -c '%s %.9Z' "$1"; else sha256sum "$1" 2>/dev/null; fi
  [[ ! -e $1.tev-undo ]] || echo undo
}

# refused STATUS FILE TEXT ARGS...: `$tev ARGS` exits STATUS with TEXT on
# stderr (as its one line when STATUS is 1) and leaves FILE, and whether an
# undo file stands beside it, as they were.
refused() {
  local want=$1 file=$2 text=$3 what="tev ${*:4}" before
  shift 3
  before=$(state_of "$file")
  expect_status "$want" "$what" "$tev" "$@"
  if [[ $want -eq 1 ]]; then
    expect_stderr_line "$what" "$text"
  elif ! grep -qF -- "$text" "$scratch/stderr"; then
    note_failure "$what: stderr lacks '$text': $(cat "$scratch/stderr")"
  fi
  [[ $(state_of "$file") == "$before" ]] || note_failure "$what: the file changed"
}

finish() {
  ((failures == 0)) || { echo "$failures check(s) failed" >&2 && exit 1; }
  echo "all checks passed"
}
