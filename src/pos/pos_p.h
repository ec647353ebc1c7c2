#pragma once
// Internals of the status file subsystem, declared here for its tests and benchmarks
// only; other subsystems use pos.h.

#include "pos/pos.h"

#include <QDomDocument>
#include <QDomElement>
#include <string>

namespace pos {

// The combined status a "Simple_Goal" must carry, from its first "Proof_State", its
// "iapa" verdict and every "Mechanism" child: any disproof wins, then any proof, then
// any unreliable proof ("Valid" from the assistant), else UNPROVED; never UNKNOWN.
// Throws std::out_of_range "map::at" for a "Mechanism" status or an "iapa" value it does
// not know, a missing one included.
status_t expectedStatus(const QDomElement& goal);

// Reads the .pos file at `path` (UTF-8); a missing, empty or malformed file gives a null
// document.
QDomDocument domOfPath(const std::string& path);

} // namespace pos
