#pragma once
// What the director tells an observer of its jobs (a report file, a progress line): each
// driver that starts and ends, and each job, with its goals' answers and statuses, its
// times, how its tools ended and the command lines that redo it by hand. Without an
// observer none of this is built.
//
// Calls come from the main thread (driverStarted, driverEnded) and from the worker
// threads (jobStarted, jobEnded, several at once): an observer guards its own state.

#include "pos/pos.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <string>
#include <vector>

namespace director {

// How one tool of a job ended; `ran` is false for a tool the job never got to (the prover
// of a job answered from the cache, the reader after a prover crash).
struct tool_end_t {
    bool ran = false;
    bool started = false;
    QString failure; // why it could not start: "cannot exec 'PATH': REASON" and the like
    bool crashed = false;
    int code = 0;
    int signal = 0;
    QByteArray errors; // what it wrote on standard error, capped
    QString command;   // the command line, as the trace prints it
};

struct goal_result_t {
    std::string group;         // the group's name
    unsigned long long number; // the goal's number in its group, counted from 1
    QString answer;            // "Proved", "Unknown" or "Disproved"; null for no answer
    pos::status_t before = pos::UNPROVED;
    pos::status_t after = pos::UNPROVED;
    QString line; // the reader's line for it, whatever it says; null when it had none
};

struct job_report_t {
    std::string mechanism;
    QString driver;
    std::vector<goal_result_t> goals;
    double writerSeconds = 0;
    double proverSeconds = 0; // prover and reader together, or the cache's lookup
    bool fromCache = false;
    tool_end_t writer, prover, reader;
    QString secondaryFile;
    QStringList failures; // the failure lines the job wrote ("Driver prover crashed." ...)
};

// "SIGSEGV" for SIGSEGV; "signal N" for a number without a name.
QString nameOfSignal(int signal);
// How a tool that ran ended, in words: "ended by signal SIGSEGV", "ended with exit code 3"
// or why it could not start ("cannot exec 'PATH': REASON").
QString endOfTool(const tool_end_t& tool);
// Writes one line (a '\n' is added) to standard error in one call, past std::cerr: that
// one flushes std::cout first, which may be blocked for good on a pipe nobody reads, and
// the callers hold a lock that a stop needs (the saver's, the report's).
void sayPastStdout(const std::string& line);

class JobObserver {
public:
    virtual ~JobObserver() = default;
    // A driver with work starts: `goals` goals in `jobs` jobs.
    virtual void driverStarted(const std::string& mechanism, const QString& driver,
                               std::size_t goals, std::size_t jobs) = 0;
    virtual void jobStarted() = 0;
    virtual void jobEnded(const job_report_t& job) = 0;
    virtual void driverEnded() = 0;
};

// Passes every call on to each observer of a list, in its order.
class JobObservers : public JobObserver {
public:
    void add(JobObserver* observer) { observers.push_back(observer); }
    bool empty() const { return observers.empty(); }
    void driverStarted(const std::string& mechanism, const QString& driver, std::size_t goals,
                       std::size_t jobs) override {
        for (JobObserver* o : observers)
            o->driverStarted(mechanism, driver, goals, jobs);
    }
    void jobStarted() override {
        for (JobObserver* o : observers)
            o->jobStarted();
    }
    void jobEnded(const job_report_t& job) override {
        for (JobObserver* o : observers)
            o->jobEnded(job);
    }
    void driverEnded() override {
        for (JobObserver* o : observers)
            o->driverEnded();
    }

private:
    std::vector<JobObserver*> observers;
};

} // namespace director
