# Shared helpers of the tool's end-to-end tests: a scratch directory, runs
# that capture status and output, and assertions that count failures
# instead of stopping at the first one.

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

note_failure() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# run CMD...: runs it, leaving $status, $scratch/stdout and $scratch/stderr.
run() {
  set +e
  "$@" >"$scratch/stdout" 2>"$scratch/stderr"
  status=$?
  set -e
}

# expect_status N DESCRIPTION CMD...
expect_status() {
  local want=$1 what=$2
  shift 2
  run "$@"
  if [[ $status -ne $want ]]; then
    note_failure "$what: exit $status, expected $want; stderr: $(cat "$scratch/stderr")"
  fi
}

# expect_stderr_line DESCRIPTION TEXT: stderr is exactly one line containing TEXT.
expect_stderr_line() {
  local what=$1 text=$2
  local lines
  lines=$(wc -l <"$scratch/stderr")
  if [[ $lines -ne 1 ]] || ! grep -qF -- "$text" "$scratch/stderr"; then
    note_failure "$what: expected one stderr line with '$text', got: $(cat "$scratch/stderr")"
  fi
}

expect_quiet_stderr() {
  if [[ -s $scratch/stderr ]]; then
    note_failure "$1: unexpected stderr: $(cat "$scratch/stderr")"
  fi
}

# expect_json DESCRIPTION PYTHON_EXPRESSION: the last stdout parses as JSON
# and the expression holds with the document bound to `d`.
expect_json() {
  local what=$1 expr=$2
  if ! python3 - "$scratch/stdout" "$expr" <<'PY'
import json, sys
with open(sys.argv[1]) as f:
    d = json.load(f)
if not eval(sys.argv[2]):
    print(json.dumps(d, indent=1), file=sys.stderr)
    sys.exit(1)
PY
  then
    note_failure "$what: JSON check failed: $expr"
  fi
}

expect_same() {
  local what=$1 a=$2 b=$3
  cmp -s "$a" "$b" || note_failure "$what: $a and $b differ"
}

checksum() { sha256sum "$1" | cut -d' ' -f1; }

finish() {
  if [[ $failures -ne 0 ]]; then
    echo "$failures check(s) failed" >&2
    exit 1
  fi
  echo "all checks passed"
}
