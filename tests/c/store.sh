#!/usr/bin/env bash
# A process that kills itself, and the next one with its store.
#   store.sh PROGRAM URL
set -uo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" begin "$2" "$folder"
killed=$?
[ "$killed" = 137 ] || { echo "the first process ended with $killed"; exit 1; }
"$1" end "$2" "$folder"
