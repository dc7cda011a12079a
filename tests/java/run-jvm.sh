#!/usr/bin/env bash
# Runs JAVA ARGS... and fails when the JVM fails or its output holds a -Xcheck:jni warning or
# error (a JNI call with a pending exception, too many local references, a bad argument, ...).
set -uo pipefail
output=$(mktemp)
trap 'rm -f "$output"' EXIT
"$@" >"$output" 2>&1
status=$?
cat "$output"
if grep -qE '^WARNING|FATAL ERROR in native method|JNI DETECTED ERROR' "$output"; then
  echo "run-jvm.sh: JNI warnings in the output above" >&2
  exit 1
fi
exit "$status"
