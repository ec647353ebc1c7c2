#!/bin/sh
# Logs its arguments to writer.log and writes the "-a" pairs it received, one "g p" line
# each, into its "-o" file.
echo "$@" >> "$(dirname "$0")/writer.log"
out=""
pairs=""
while [ $# -gt 0 ]; do
  case "$1" in
    -a) pairs="$pairs$2 $3
"; shift 3;;
    -o) out="$2"; shift 2;;
    -i) shift 2;;
    *) shift;;
  esac
done
printf '%s' "$pairs" > "$out"
