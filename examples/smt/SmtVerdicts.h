#pragma once
// Turns a solver's output on a script of SmtScript.h into one verdict per block.

#include "SmtScript.h"

#include <QString>
#include <QStringList>
#include <vector>

namespace smt {

extern const QString VERDICT_PROVED;    // "Proved": the negated goal is unsatisfiable
extern const QString VERDICT_DISPROVED; // "Disproved": the negated goal has a model
extern const QString VERDICT_UNKNOWN;   // "Unknown": anything else

struct Verdict {
    QString text;      // one of the three verdicts above
    QStringList model; // the solver's model lines, kept only for "Disproved"
};

// One verdict per block of outline, in the script's order. A block's answer is the first
// "unsat", "sat", "unknown" or "timeout" line after its mark; a block whose mark never
// appears (a crash, a truncated output), that has no such line, or whose answer follows an
// "(error ...)" line (the solver ignored part of the obligation) is "Unknown".
std::vector<Verdict> verdictsOfOutput(const ScriptOutline& outline, const QString& output);

} // namespace smt
