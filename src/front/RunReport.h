#pragma once
// The files a team reads after a run: a JSON report of every job (--report) and JUnit XML
// of every goal played (--junit), and what --strict makes of the run.
//
// The JSON report is written while the run goes on, one job at a time, to a temporary
// file beside its name, so that its memory does not grow with the number of jobs; finish()
// adds the summary and renames it into place, so that a reader never sees half a report.
// The JUnit file needs its counts before its test cases: it is kept in memory (a few
// hundred bytes a goal) and written whole, also by finish(). docs/report.schema.json
// describes the JSON document.
//
// Thread safety: every member may be called from any thread; one mutex guards all state.

#include "director/JobObserver.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QString>
#include <QStringList>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

class RunReport : public director::JobObserver {
public:
    // Either file name may be empty (not wanted). Says on standard error, once, when the
    // report cannot be written; the run goes on.
    RunReport(const QString& reportFile, const QString& junitFile, const QStringList& command,
              const std::string& component);
    ~RunReport() override;

    void driverStarted(const std::string& mechanism, const QString& driver, std::size_t goals,
                       std::size_t jobs) override;
    void jobStarted() override {}
    void jobEnded(const director::job_report_t& job) override;
    void driverEnded() override;

    // Writes both files whole; later calls do nothing. False when one could not be written
    // (said on standard error).
    bool finish();
    // True when a goal played in this run ended neither proved nor unreliably proved, or
    // its last job failed.
    bool somethingUnproved() const;

private:
    struct driver_time_t {
        std::string mechanism;
        QString driver;
        std::size_t goals = 0, jobs = 0;
        double seconds = 0;
    };
    struct slow_job_t {
        double seconds;
        std::string mechanism;
        QString driver;
        QStringList goals;
    };
    // (mechanism, group, number): a goal, wherever several drivers play it.
    using goal_key_t = std::tuple<std::string, std::string, unsigned long long>;

    void writeJson(const QByteArray& bytes);
    void countJob(const director::job_report_t& job);
    void addTestCases(const director::job_report_t& job);
    void closeSuite(); // ends the JUnit suite of the driver played, if any
    QByteArray summary() const;
    bool finishJson();
    bool finishJunit();

    mutable std::mutex mutex;
    QString reportFile, junitFile;
    QFile json; // the report being written, beside reportFile
    bool firstJob = true;
    bool finished = false;
    QElapsedTimer elapsed;
    QElapsedTimer driverClock;
    std::map<QString, std::size_t> answerCounts, statusCounts;
    std::size_t jobCount = 0, cachedJobs = 0, failedJobs = 0;
    std::vector<driver_time_t> drivers;
    std::vector<slow_job_t> slowest;       // the 10 slowest, slowest first
    std::map<goal_key_t, bool> goalProved; // by the last job that played it
    // JUnit: the finished suites, and the test cases and counts of the one being played.
    QByteArray junitSuites, junitCases;
    std::size_t suiteFailures = 0, suiteErrors = 0, suiteTests = 0;
    double suiteSeconds = 0;
    bool suiteOpen = false;
    std::string component;
};
