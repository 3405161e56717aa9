#!/usr/bin/env bash
# Times `vxcloud hash` against `openssl dgst` on the same file, whole process, best of N
# runs each, for the digests both compute (MD5: Drive and Evernote; SHA-1: Box). Prints
# the figures and whether vxcloud is within 10% of openssl.
#   bench/hash_vs_openssl.sh [BUILD_DIR] [SIZE_MIB] [RUNS]
set -euo pipefail
build="${1:-build}"
size_mib="${2:-256}"
runs="${3:-5}"
vx="$build/vxcloud"
[ -x "$vx" ] || { echo "no $vx: build first" >&2; exit 2; }
file="$(mktemp /tmp/vxcloud-hash-bench-XXXXXX)"
trap 'rm -f "$file"' EXIT
head -c "$((size_mib * 1024 * 1024))" /dev/urandom > "$file"
cat "$file" > /dev/null  # in the page cache, as a scan just written is

best() {  # best wall time in seconds of RUNS runs of the command
  local best=""
  for _ in $(seq "$runs"); do
    local t0 t1
    t0=$(date +%s.%N); "$@" > /dev/null; t1=$(date +%s.%N)
    best=$(echo "$t0 $t1 ${best:-999}" | awk '{d=$2-$1; print (d<$3)?d:$3}')
  done
  echo "$best"
}

status=0
printf "%s MiB, best of %s runs\n%-6s %10s %10s %7s  %s\n" "$size_mib" "$runs" digest "vxcloud s" "openssl s" ratio "within 10%"
for pair in "md5 google_drive" "sha1 box"; do
  set -- $pair
  ours=$(best "$vx" hash --service "$2" "$file")
  theirs=$(best openssl dgst "-$1" "$file")
  ratio=$(awk -v a="$ours" -v b="$theirs" 'BEGIN{printf "%.3f", a/b}')
  ok=$(awk -v r="$ratio" 'BEGIN{print (r<=1.10)?"yes":"NO"}')
  [ "$ok" = yes ] || status=1
  printf "%-6s %10.3f %10.3f %7s  %s\n" "$1" "$ours" "$theirs" "$ratio" "$ok"
done
exit "$status"
