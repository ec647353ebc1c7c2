#pragma once
// Pieces shared by the director's source files, and the rules worth testing alone.

#include "mechanism/Mechanism.h"
#include "pos/pos.h"

#include <QString>
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

} // namespace director
