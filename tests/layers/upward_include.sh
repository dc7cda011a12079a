#!/bin/sh
# The layers' include roots refuse an include that points up: a voxa/ source
# that includes an editor/ header does not compile with the voxa root, and
# the same file compiles with every layer in view (so the refusal is the
# layer's, not a missing header). No source reaches around the roots with
# a relative "../" include.
# Usage: upward_include.sh CXX SOURCE_DIR LAYER_ROOT
set -u
cxx=$1 src=$2 layers=$3
probe=$(mktemp --suffix=.cpp) log=$(mktemp)
trap 'rm -f "$probe" "$log"' EXIT
printf '#include "editor/add_internal.h"\nint main() { return 0; }\n' > "$probe"

if "$cxx" -std=c++17 -fsyntax-only -I"$src/include" -I"$layers/voxa" "$probe" 2>"$log"; then
  echo "FAIL: voxa/ may include editor/ headers"; exit 1
fi
grep -q 'editor/add_internal.h' "$log" || { echo "FAIL: unexpected error:"; cat "$log"; exit 1; }
"$cxx" -std=c++17 -fsyntax-only -I"$src/include" -I"$layers/jni" "$probe" ||
  { echo "FAIL: the probe does not compile with every layer in view"; exit 1; }
if grep -rn '#include "\.\./' "$src/src"; then
  echo "FAIL: a relative include reaches around the layer roots"; exit 1
fi
echo "ok: upward includes are refused"
