#include "front/RunNotes.h"

#include "director/ProofDirector.h"
#include "front/Utils.h"

#include <iostream>

void warnAboutComponentNames(const settings_t& settings) {
    if (baseNameOfPath(settings.posPath) == baseNameOfPath(settings.pogPath))
        return;
    std::cerr << "povrun: " << settings.posPath << " and " << settings.pogPath
              << " name different components" << std::endl;
}

void IdleRunNote::note(const ProofDirector& director) {
    if (director.getJobsStarted() > 0) {
        jobsStarted = true;
        return;
    }
    // A status file that could not be loaded has been reported already, and a mechanism
    // without drivers has nothing that an option could start.
    if (director.getDocument().isNull() || director.getMechanism().drivers.empty() ||
        director.getUnprovedCount() == 0)
        return;
    unproved = director.getUnprovedCount();
    idleMechanisms.push_back(director.getMechanismName());
}

namespace {

std::string joined(const std::vector<std::string>& words, const char* last) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + words[i];
    return text;
}

// Why the goals had no driver, by what the run asked for, and what else could be asked.
std::string reasonAndRemedy(const settings_t& settings, const std::string& mechanisms) {
    if (settings.retryUnknown)
        return "no unproved goal records a driver of " + mechanisms +
               " as having proved, disproved or left it Unknown; try " +
               (settings.firstPlay ? "--reset" : "--first-play or --reset");
    if (settings.firstPlay)
        return mechanisms + " already left each of them without a verdict; try " +
               "--retry-unknown or --reset";
    return "no unproved goal records a driver of " + mechanisms +
           " as having proved or disproved it; try --first-play, --retry-unknown or --reset";
}

} // namespace

void IdleRunNote::sayIfIdle(const settings_t& settings) const {
    // A reset gives every driver every goal not proved: only a mechanism without drivers
    // stays idle, and no option changes that.
    if (jobsStarted || idleMechanisms.empty() || settings.reset)
        return;
    std::cerr << "povrun: no job was started although " << unproved
              << (unproved == 1 ? " goal is" : " goals are")
              << " unproved: " << reasonAndRemedy(settings, joined(idleMechanisms, " or "))
              << std::endl;
}
