#pragma once
// The SMT-LIB 2 script that the writer hands to a solver, and the marks by which the reader
// finds each obligation's answer again in the solver's output.
//
// Every obligation becomes one block, in the order the writer received the addresses:
//   (echo "@po N")  (push 1)  declarations  (assert hypothesis)...  (assert (not goal))
//   (check-sat)  [(get-model)]  (pop 1)
// where N counts the blocks from 0. The echoed mark lets the reader tie an answer to its
// block even when a solver skips one (an error, a crash, a time limit), so a missing answer
// can never shift the verdicts of the obligations after it.

#include "ObligationFile.h"

#include <QString>
#include <utility>
#include <vector>

namespace smt {

// Address of an obligation: (group, obligation), both counted from 0.
using Address = std::pair<unsigned long long, unsigned long long>;

struct ScriptOptions {
    QString logic = QStringLiteral("ALL");
    bool models = false; // ask for a model after each answer (a counterexample when "sat")
    QString source;      // the obligation file's path, named in the script's first comment
};

// Builds the script for the addresses, in their order (an address may repeat). On an address
// that the file does not hold returns false and sets error; script is then unchanged.
bool buildScript(const ObligationFile& file, const std::vector<Address>& addresses,
                 const ScriptOptions& options, QString& script, QString& error);

// The mark that opens block number index, as echoed by the script.
QString blockMark(int index);

// The block number of a solver output line that is a block mark, or -1. Solvers print an
// echoed string either bare or within its double quotes; both are accepted.
int blockOfOutputLine(const QString& line);

// What the reader needs to know of a script: its block numbers in order, and whether it asks
// for models.
struct ScriptOutline {
    std::vector<int> blocks;
    bool models = false;
};
ScriptOutline outlineOfScript(const QString& script);

} // namespace smt
