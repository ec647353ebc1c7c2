#pragma once
// One status line on a terminal's standard error, redrawn in place while a driver plays:
//   [done/total] driver D, R running, 0:12 elapsed, about 0:30 left
// (goals done out of the driver's goals; the time left from the pace of the goals done).
// Anything else written to std::cerr or std::clog first clears the line, so that no
// message is drawn over it; the line is cleared too when the driver ends. finish() writes
// one last line with the elapsed time and the counts of the run's answers.
//
// Thread safety: every member may be called from any thread; one mutex guards the line and
// the counts, and is held while a message is written through the two streams.

#include "director/JobObserver.h"

#include <QElapsedTimer>
#include <map>
#include <memory>
#include <mutex>
#include <streambuf>

class Progress : public director::JobObserver {
public:
    // True when standard error is a terminal that can redraw a line.
    static bool wanted();
    Progress();
    ~Progress() override; // gives std::cerr and std::clog their own buffers back

    void driverStarted(const std::string& mechanism, const QString& driver, std::size_t goals,
                       std::size_t jobs) override;
    void jobStarted() override;
    void jobEnded(const director::job_report_t& job) override;
    void driverEnded() override;
    void finish();

    // Clears the line if it is shown; the caller holds `mutex`.
    void clearLine();
    std::mutex mutex;

private:
    void draw(); // the caller holds mutex

    class ClearingBuffer;
    std::unique_ptr<ClearingBuffer> cerrBuffer, clogBuffer;
    QElapsedTimer runClock, driverClock, drawClock;
    QString driverName;
    std::size_t goals = 0, done = 0, running = 0;
    bool shown = false;
    std::map<QString, std::size_t> answers;
};
