#!/bin/sh
# Fails when a layer includes one above it: runtime < identity < host; tools and tests are above all.
src=${1:?usage: check_layering.sh CODE_SRC}
status=0
check() { # folder, forbidden include prefixes...
  folder=$1; shift
  for prefix in "$@"; do
    found=$(grep -rn "#include [\"<]$prefix/" "$src/$folder" 2>/dev/null)
    if [ -n "$found" ]; then
      echo "$folder must not include $prefix/:"; echo "$found"; status=1
    fi
  done
}
check runtime identity host tools tests
check identity host tools tests
check host tools tests
exit $status
