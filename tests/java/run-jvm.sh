#!/usr/bin/env bash
# Runs a JVM command line and fails when the JVM fails or when its output
# holds a warning or error from -Xcheck:jni (a JNI call made with a pending
# exception, local references past capacity, a bad argument, ...).
# Usage: run-jvm.sh JAVA ARGS...
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
