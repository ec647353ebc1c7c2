#pragma once
// Pieces shared by the director's source files, and the rules worth testing alone.

#include "mechanism/Mechanism.h"
#include "pos/pos.h"

#include <QDomElement>
#include <QString>
#include <QStringList>
#include <chrono>
#include <iostream>
#include <sstream>
#include <string>

namespace director {

extern const char TRACE_PREFIX[];
// Worker threads spell it with a blank; other programs read both forms.
extern const char THREAD_TRACE_PREFIX[];

double secondsSince(std::chrono::steady_clock::time_point start);

inline std::string utf8(const QString& text) {
    return text.toStdString();
}

// One line of the log stream, written in one piece when the statement ends, so that the
// lines of concurrent workers never mix.
class LogLine {
public:
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;
    ~LogLine() {
        text << '\n';
        std::clog << text.str() << std::flush;
    }
    template <typename T> LogLine& operator<<(const T& value) {
        text << value;
        return *this;
    }

private:
    std::ostringstream text;
};

// What one reader answer does to a PO, by the mechanism's trust rule.
struct answer_effect_t {
    pos::status_t next; // the PO's new status
    bool setElement;    // the mechanism element's status becomes `next`
    bool clearDrivers;  // no driver need try the PO again (else only this one is done)
    bool mayUpdateGoal; // the goal's own status may follow
};

// `answer` is "Proved", "Unknown" or "Disproved"; `lastDriver` tells whether the driver
// is the mechanism element's last one (only the last may declare a PO unknown).
answer_effect_t effectOfAnswer(mechanism::trust_t trust, pos::status_t old, const QString& answer,
                               bool lastDriver);

// The first "Mechanism" child of `goal` named `name`; null when there is none.
QDomElement mechanismElementOf(const QDomElement& goal, const QString& name);

// The drivers a replay gives a goal whose status is "Unproved", from this mechanism's
// `element`: when the element is "Unproved", those recorded "Proved" or "Disproved"; with
// `retryUnknown`, also those recorded "Unknown", the element "Unproved" or "Unknown".
QStringList replayDriversOf(const QDomElement& element, bool retryUnknown);

// The drivers a first play gives a goal it does not count as settled: every driver when
// the element's status is "Unproved" (an element without status has none); with
// `retryUnknown`, those recorded "Unknown" when it is "Unknown". False when neither holds:
// the goal then gets no driver and its record keeps the goal's status.
bool firstPlayDriversOf(const QDomElement& element, bool retryUnknown, QStringList& drivers);

} // namespace director
