#pragma once
// The stop path: SIGTERM, SIGINT, SIGHUP and SIGPIPE end a run cleanly. The handlers only
// write the signal's number on a pipe; a watcher thread then stops the director in use
// (its tools ended, its secondary files removed, its document saved), hands make's job
// slots back, finishes the run's report, says how many answers were saved, and ends the
// process: status 1 for SIGTERM, death by the signal itself for the others.

#include <cstdint>

class ProofDirector;
class RunReport;
namespace director {
class Jobserver;
}

namespace stoppath {

// Installs the handlers and starts the watcher. A signal the shell told povrun to ignore
// (a background job's SIGINT, nohup's SIGHUP) stays ignored; SIGTERM and SIGPIPE are always
// handled.
void install();

// The director a stop ends; null between mechanisms. retireDirector() clears it and counts
// the answers it recorded, before the caller destroys it.
void setDirector(ProofDirector* current);
void retireDirector(ProofDirector* current);
// The report a stop finishes with what was done; null when none.
void setReport(RunReport* report);

// The job slots of the make running povrun. Made first thing in main, before any
// descriptor is opened, and never destroyed: the watcher may be handing its tokens back
// while main returns.
director::Jobserver& jobSlots();

// A run that a signal is stopping is ended by the watcher, never by main.
void waitForAStopUnderWay();

} // namespace stoppath
