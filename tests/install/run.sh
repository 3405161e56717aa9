#!/usr/bin/env bash
# Installs the build into a temporary prefix, builds a small host against the installed CMake
# package, and runs it from the prefix's bin directory: headers, link interface and the bundle
# lookup all have to work without the source or build tree.
set -euo pipefail
build=$1; source=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
cp "$work/consumer/consumer" "$work/prefix/bin/"
"$work/prefix/bin/consumer" "$work/prefix/share/vxcloud/VXCloud.bundle"
