#pragma once
// The files a replay benchmark run works on, all in one folder: a mechanism "bench" with
// one driver "d1" of group "none" whose writer, prover and reader are the compiled
// trivial tools, a placeholder PO file, a temporary folder for the secondary files and a
// .pos file rewritten before every run.

#include <QString>

namespace replaybench {

struct tools_t {
    QString writer;
    QString prover;
    QString reader;
};

struct workspace_t {
    QString dir;
    QString mechanismFile; // <dir>/bench.xml
    QString pogFile;       // <dir>/comp.pog
    QString posFile;       // <dir>/comp.pos
    QString tempDir;       // <dir>/tmp
    tools_t tools;
};

extern const QString MECHANISM_NAME; // "bench", the mechanism file's base name
extern const QString DRIVER_NAME;    // "d1"
constexpr unsigned GOALS_PER_GROUP = 20;

// Writes the mechanism file and the PO file and creates the temporary folder under
// `dir`, which must exist. False when one of them cannot be written.
bool prepare(const QString& dir, const tools_t& tools, workspace_t& workspace);

// Rewrites the .pos file: `goals` goals (rounded up to whole groups of GOALS_PER_GROUP),
// the first `replayable` of them replayable by the driver.
bool writePos(const workspace_t& workspace, unsigned goals, unsigned replayable);

// The number of goals of `posFile` whose status is "Proved"; -1 when it cannot be read.
long provedGoals(const QString& posFile);

} // namespace replaybench
