#!/bin/sh
# Answers one line per "g p" line read: the answer listed for that pair in the file
# "answers" ("g p ANSWER" lines), else "Proved".
while read g p; do
  a=$(grep "^$g $p " "$(dirname "$0")/answers" 2>/dev/null | head -n 1 | cut -d' ' -f3-)
  echo "${a:-Proved}"
done
