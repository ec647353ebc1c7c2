// The JUnit half of the run report: a test suite per driver played, a test case per goal.

#include "front/RunReport.h"

#include <QSaveFile>

using director::goal_result_t;
using director::job_report_t;
using director::tool_end_t;

namespace {

// Text for an attribute or an element: escaped, without the control characters that XML
// 1.0 cannot hold (a tool's colours, say).
QByteArray xmlText(const QString& text) {
    QString kept;
    kept.reserve(text.size());
    for (const QChar c : text)
        if (c >= QChar(0x20) || c == QLatin1Char('\n') || c == QLatin1Char('\t'))
            kept += c;
    return kept.toHtmlEscaped().toUtf8();
}

QByteArray seconds(double value) {
    return QByteArray::number(value, 'f', 3);
}

// The tool that crashed or could not start, if any: such a job is an error, not a failure.
const tool_end_t* brokenTool(const job_report_t& job, const char*& role) {
    const std::pair<const char*, const tool_end_t*> tools[] = {
        {"writer", &job.writer}, {"prover", &job.prover}, {"reader", &job.reader}};
    for (const auto& [name, tool] : tools) {
        role = name;
        if (tool->ran && (!tool->started || tool->crashed))
            return tool;
    }
    return nullptr;
}

} // namespace

void RunReport::addTestCases(const job_report_t& job) {
    if (junitFile.isEmpty())
        return;
    suiteOpen = true;
    const char* role = nullptr;
    const tool_end_t* broken = brokenTool(job, role);
    const double share =
        (job.writerSeconds + job.proverSeconds) / std::max<std::size_t>(1, job.goals.size());
    for (const goal_result_t& goal : job.goals) {
        ++suiteTests;
        suiteSeconds += share;
        junitCases += "    <testcase classname=\"" +
                      xmlText(QString::fromStdString(component + '.' + goal.group)) +
                      "\" name=\"goal " + QByteArray::number(goal.number) + ", driver " +
                      xmlText(job.driver) + "\" time=\"" + seconds(share) + "\"";
        if (broken != nullptr) {
            ++suiteErrors;
            junitCases += ">\n      <error type=\"" + QByteArray(role) + "\" message=\"" +
                          xmlText(job.failures.join(' ')) + "\">" +
                          xmlText(QString(role) + ": " + director::endOfTool(*broken)) +
                          "</error>\n      <system-err>" +
                          xmlText(QString::fromUtf8(broken->errors)) +
                          "</system-err>\n    </testcase>\n";
        } else if (goal.answer == pos::ATTR_VALUE_PROVED && job.failures.isEmpty()) {
            junitCases += "/>\n";
        } else {
            ++suiteFailures;
            const bool disproved =
                goal.answer == pos::ATTR_VALUE_DISPROVED && job.failures.isEmpty();
            const QString message = !job.failures.isEmpty() ? job.failures.join(' ')
                                    : goal.answer.isNull()  ? QStringLiteral("no answer")
                                                            : goal.answer;
            junitCases += ">\n      <failure type=\"" +
                          QByteArray(disproved ? "disproved" : "unknown") + "\" message=\"" +
                          xmlText(message) + "\"/>\n    </testcase>\n";
        }
    }
}

void RunReport::closeSuite() {
    if (!suiteOpen || drivers.empty())
        return;
    const driver_time_t& d = drivers.back();
    junitSuites += "  <testsuite name=\"" + xmlText(QString::fromStdString(d.mechanism)) + "/" +
                   xmlText(d.driver) + "\" tests=\"" + QByteArray::number(qulonglong(suiteTests)) +
                   "\" failures=\"" + QByteArray::number(qulonglong(suiteFailures)) +
                   "\" errors=\"" + QByteArray::number(qulonglong(suiteErrors)) +
                   "\" skipped=\"0\" time=\"" + seconds(suiteSeconds) + "\">\n" + junitCases +
                   "  </testsuite>\n";
    junitCases.clear();
    suiteTests = suiteFailures = suiteErrors = 0;
    suiteSeconds = 0;
    suiteOpen = false;
}

bool RunReport::finishJunit() {
    if (junitFile.isEmpty())
        return true;
    QSaveFile file(junitFile);
    const QByteArray text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"" +
                            xmlText(QString::fromStdString(component)) + "\">\n" + junitSuites +
                            "</testsuites>\n";
    if (file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit())
        return true;
    director::sayPastStdout("povrun: cannot write the JUnit file " + junitFile.toStdString() +
                            ": " + file.errorString().toStdString());
    return false;
}
