#include "front/RunReport.h"

#include "front/JsonText.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

using director::goal_result_t;
using director::job_report_t;
using director::tool_end_t;

namespace {

// What a report keeps of a tool's standard error: enough to see why, not a whole log.
constexpr int ERRORS_REPORTED = 4096;
constexpr std::size_t SLOWEST_KEPT = 10;
const QString NO_ANSWER = QStringLiteral("none");

QString cappedErrors(const QByteArray& errors) {
    QString text = QString::fromUtf8(errors.left(ERRORS_REPORTED));
    if (errors.size() > ERRORS_REPORTED)
        text += QStringLiteral("[%1 more bytes]").arg(errors.size() - ERRORS_REPORTED);
    return text;
}

// Members in name order, as everywhere in the report.
void writeTool(JsonText& json, const char* role, const tool_end_t& tool) {
    json.key(role).beginObject().key("command").value(tool.command).key("end");
    if (!tool.ran)
        json.value("not run");
    else if (!tool.started)
        json.value("not started").key("reason").value(tool.failure);
    else if (tool.crashed)
        json.value("signal").key("signal").value(director::nameOfSignal(tool.signal));
    else
        json.value("exit").key("exit_code").value(std::int64_t{tool.code});
    json.key("stderr").value(cappedErrors(tool.errors)).endObject();
}

QString goalName(const goal_result_t& goal) {
    return QString::fromStdString(goal.group) + QLatin1Char('.') + QString::number(goal.number);
}

QByteArray jobJson(const job_report_t& job) {
    JsonText json;
    json.beginObject().key("driver").value(job.driver).key("failures").value(job.failures);
    json.key("from_cache").value(job.fromCache).key("goals").beginArray();
    for (const goal_result_t& goal : job.goals) {
        json.beginObject().key("after").value(pos::strOfProofStatus(goal.after));
        json.key("answer").valueOrNull(goal.answer);
        json.key("before").value(pos::strOfProofStatus(goal.before));
        json.key("group").value(QString::fromStdString(goal.group));
        json.key("number").value(static_cast<std::int64_t>(goal.number));
        json.key("reader_line").valueOrNull(goal.line).endObject();
    }
    json.endArray().key("mechanism").value(QString::fromStdString(job.mechanism));
    json.key("prover_seconds").value(job.proverSeconds);
    json.key("secondary_file").value(job.secondaryFile);
    json.key("tools").beginObject();
    writeTool(json, "prover", job.prover);
    writeTool(json, "reader", job.reader);
    writeTool(json, "writer", job.writer);
    json.endObject().key("writer_seconds").value(job.writerSeconds).endObject();
    return json.bytes();
}

QJsonObject countsJson(const std::map<QString, std::size_t>& counts) {
    QJsonObject object;
    for (const auto& [name, count] : counts)
        object[name] = static_cast<qint64>(count);
    return object;
}

} // namespace

RunReport::RunReport(const QString& reportFile, const QString& junitFile,
                     const QStringList& command, const std::string& component)
    : reportFile(reportFile), junitFile(junitFile), component(component) {
    elapsed.start();
    if (reportFile.isEmpty())
        return;
    json.setFileName(reportFile + QStringLiteral(".tmp-%1").arg(::getpid()));
    if (!json.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        director::sayPastStdout("povrun: cannot write the report " + reportFile.toStdString() +
                                ": " + json.errorString().toStdString());
        return;
    }
    const QJsonObject head{{"format", 1},
                           {"povrun", POVRUN_VERSION},
                           {"command", QJsonArray::fromStringList(command)},
                           {"component", QString::fromStdString(component)},
                           {"start", QDateTime::currentDateTimeUtc().toString(Qt::ISODate)}};
    QByteArray text = QJsonDocument(head).toJson(QJsonDocument::Compact);
    text.chop(1); // the closing brace: jobs and the summary follow
    writeJson(text + ",\n\"jobs\": [");
}

RunReport::~RunReport() {
    if (json.isOpen()) {
        json.close();
        json.remove();
    }
}

void RunReport::writeJson(const QByteArray& bytes) {
    if (json.isOpen() && json.write(bytes) != bytes.size()) {
        director::sayPastStdout("povrun: cannot write the report " + reportFile.toStdString() +
                                ": " + json.errorString().toStdString());
        json.close();
        json.remove();
    }
}

void RunReport::driverStarted(const std::string& mechanism, const QString& driver,
                              std::size_t goals, std::size_t jobs) {
    std::lock_guard<std::mutex> lock(mutex);
    drivers.push_back({mechanism, driver, goals, jobs, 0});
    driverClock.start();
}

void RunReport::driverEnded() {
    std::lock_guard<std::mutex> lock(mutex);
    if (drivers.empty())
        return;
    drivers.back().seconds = driverClock.nsecsElapsed() / 1e9;
    closeSuite();
}

void RunReport::jobEnded(const job_report_t& job) {
    std::lock_guard<std::mutex> lock(mutex);
    if (finished)
        return;
    writeJson((firstJob ? "\n" : ",\n") + jobJson(job));
    firstJob = false;
    countJob(job);
    addTestCases(job);
}

void RunReport::countJob(const job_report_t& job) {
    ++jobCount;
    cachedJobs += job.fromCache;
    failedJobs += !job.failures.isEmpty();
    for (const goal_result_t& goal : job.goals) {
        ++answerCounts[goal.answer.isNull() ? NO_ANSWER : goal.answer];
        ++statusCounts[pos::strOfProofStatus(goal.after)];
        goalProved[{job.mechanism, goal.group, goal.number}] =
            job.failures.isEmpty() &&
            (goal.after == pos::PROVED || goal.after == pos::UNRELIABLY_PROVED);
    }
    const double seconds = job.writerSeconds + job.proverSeconds;
    if (slowest.size() == SLOWEST_KEPT && seconds <= slowest.back().seconds)
        return;
    QStringList goals;
    for (const goal_result_t& goal : job.goals)
        goals << goalName(goal);
    const slow_job_t slow{seconds, job.mechanism, job.driver, goals};
    slowest.insert(std::upper_bound(slowest.begin(), slowest.end(), slow,
                                    [](const slow_job_t& a, const slow_job_t& b) {
                                        return a.seconds > b.seconds;
                                    }),
                   slow);
    if (slowest.size() > SLOWEST_KEPT)
        slowest.pop_back();
}

QByteArray RunReport::summary() const {
    QJsonArray driverTimes, slow;
    for (const driver_time_t& d : drivers)
        driverTimes.append(QJsonObject{{"mechanism", QString::fromStdString(d.mechanism)},
                                       {"driver", d.driver},
                                       {"goals", static_cast<qint64>(d.goals)},
                                       {"jobs", static_cast<qint64>(d.jobs)},
                                       {"seconds", d.seconds}});
    for (const slow_job_t& job : slowest)
        slow.append(QJsonObject{{"mechanism", QString::fromStdString(job.mechanism)},
                                {"driver", job.driver},
                                {"goals", QJsonArray::fromStringList(job.goals)},
                                {"seconds", job.seconds}});
    const QJsonObject object{{"jobs", static_cast<qint64>(jobCount)},
                             {"jobs_from_cache", static_cast<qint64>(cachedJobs)},
                             {"failed_jobs", static_cast<qint64>(failedJobs)},
                             {"answers", countsJson(answerCounts)},
                             {"statuses", countsJson(statusCounts)},
                             {"drivers", driverTimes},
                             {"slowest_jobs", slow}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

bool RunReport::finish() {
    std::lock_guard<std::mutex> lock(mutex);
    if (finished)
        return true;
    finished = true;
    closeSuite();
    const bool jsonWritten = finishJson();
    return finishJunit() && jsonWritten;
}

bool RunReport::finishJson() {
    if (reportFile.isEmpty())
        return true;
    writeJson("\n],\n\"elapsed_seconds\": " + QByteArray::number(elapsed.nsecsElapsed() / 1e9) +
              ",\n\"summary\": " + summary() + "}\n");
    if (!json.isOpen())
        return false;
    json.close();
    if (::rename(QFile::encodeName(json.fileName()).constData(),
                 QFile::encodeName(reportFile).constData()) == 0)
        return true;
    director::sayPastStdout("povrun: cannot write the report " + reportFile.toStdString() + ": " +
                            std::strerror(errno));
    json.remove();
    return false;
}

bool RunReport::somethingUnproved() const {
    std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(goalProved.begin(), goalProved.end(),
                       [](const auto& goal) { return !goal.second; });
}
