#!/bin/sh
# Replays the tank example in FOLDER (default: ./povrun-example), from a fresh copy of its
# status file: first the z3 mechanism, then the two-solver portfolio with tagged output.
#
#   run-example.sh [FOLDER]
#
# Installed, it finds povrun and the example's writer and reader from its own place
# (PREFIX/share/doc/povrun/examples). From a source tree, name them:
#   POVRUN=build/povrun POVRUN_TOOLS=build/examples/smt examples/smt/run-example.sh
set -eu

here=$(cd "$(dirname "$0")" && pwd)
prefix=$(cd "$here/../../../.." && pwd)
povrun=${POVRUN:-$prefix/bin/povrun}
tools=${POVRUN_TOOLS:-$prefix/lib/povrun}
work=${1:-povrun-example}

for solver in z3 cvc5; do
    command -v "$solver" >/dev/null || { echo "run-example.sh: $solver is not installed" >&2; exit 1; }
done

mkdir -p "$work/tmp"
cp "$here/tank.pos" "$work/tank.pos"
chmod u+w "$work/tank.pos"
printf 'ZDR*Proof*z3: %s\nZDR*Proof*cvc5: %s\n' \
    "$(command -v z3)" "$(command -v cvc5)" >"$work/solvers.res"

echo "== povrun with z3.xml"
"$povrun" -r "$work/solvers.res" -i "$tools" -m "$here/z3.xml" \
    -s "$work/tank.pos" -p "$here/tank.pog" -d "$work/tmp"
echo
echo "== povrun with portfolio.xml -x"
"$povrun" -r "$work/solvers.res" -i "$tools" -m "$here/portfolio.xml" \
    -s "$work/tank.pos" -p "$here/tank.pog" -d "$work/tmp" -x
