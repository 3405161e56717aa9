#!/usr/bin/env bash
# Installs the build into a temporary prefix, builds a small host against the installed CMake
# package, and runs it from the prefix's bin directory: headers, link interface and the bundle
# lookup all have to work without the source or build tree.
set -euo pipefail
build=$1; source=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
# The installed headers are the contract only: no heavy or generated headers, and provider
# wire structs at most forward-declared.
headers="$work/prefix/include/vxcloud"
if grep -rnE '#include +[<"](nlohmann/json\.hpp|curl/|thrift/|httplib|openssl/|sqlite3)' "$headers" ||
   grep -rn 'gen-cpp\|_types\.h' "$headers" ||
   grep -rnE '(struct|class) +(Metadata|File|Item|Note|Notebook|Resource)\b[^;]*\{' "$headers"; then
  echo "installed headers include heavy/generated headers or declare wire structs (above)" >&2
  exit 1
fi
# vxcloud's completions and manual page, where bash-completion, zsh and man look.
for file in share/bash-completion/completions/vxcloud share/zsh/site-functions/_vxcloud share/man/man1/vxcloud.1; do
  [ -s "$work/prefix/$file" ] || { echo "not installed: $file" >&2; exit 1; }
done
cmake -S "$source/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
cp "$work/consumer/consumer" "$work/prefix/bin/"
"$work/prefix/bin/consumer" "$work/prefix/share/vxcloud/VXCloud.bundle"
