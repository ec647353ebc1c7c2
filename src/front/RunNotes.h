#pragma once
// Lines on standard error that tell the user why a run may not do what was meant: files
// of two components, and a run that left unproved goals without starting a job.

#include "front/Options.h"

#include <cstdint>
#include <string>
#include <vector>

class ProofDirector;

// "povrun: POS and POG name different components" when the base names of the status file
// and of the obligation file differ. Only a warning: the writers read the obligation
// file, and a file named otherwise may still be the right one.
void warnAboutComponentNames(const settings_t& settings);

// Collects what each mechanism of a run played, then says why nothing was.
class IdleRunNote {
public:
    // Records `director` after its play: whether it started a job, and how many goals it
    // found unproved when it loaded the status file without starting any.
    void note(const ProofDirector& director);
    // When no mechanism of the run started a job although goals are unproved, writes one
    // line: why no goal had work, and the options that would give it some.
    void sayIfIdle(const settings_t& settings) const;

private:
    bool jobsStarted = false;
    uint32_t unproved = 0;
    std::vector<std::string> idleMechanisms;
};
