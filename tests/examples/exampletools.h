#pragma once
// Helpers of the example's tests: running the example tools and reading a .pos.

#include "common/testutil.h"

#include <QDomElement>
#include <QString>
#include <QStringList>

namespace exampletools {

testutil::RunResult runWriter(const QStringList& args);
testutil::RunResult runReader(const QStringList& args, const QByteArray& solverOutput);

// The "Simple_Goal" element number goal of "Proof_Obligation" number group (both from 0) of
// the .pos at path; a null element when there is none.
QDomElement goalOf(const QString& posPath, int group, int goal);

// The "status" attribute of the goal's "Mechanism" element called mechanism, or "(none)".
QString mechanismStatus(const QDomElement& goal, const QString& mechanism);

} // namespace exampletools
