#pragma once
// A fake tool set for director and whole-program tests, written into one folder:
//   writer.sh  logs its arguments to writer.log and writes the "-a" pairs it received,
//              one "g p" line each, into its "-o" file;
//   prover.sh  copies its input (the file named as first argument, else standard input);
//   reader.sh  answers one line per "g p" line read: the answer listed for that pair in
//              the file "answers" ("g p ANSWER" lines), else the content of
//              "default_answer", else "Proved".
// Variants of a tool are written by the tests themselves with testutil::writeScript.

#include <QByteArray>
#include <QString>
#include <utility>
#include <vector>

namespace faketools {

struct ToolSet {
    QString dir;
    QString writer() const { return dir + "/writer.sh"; }
    QString prover() const { return dir + "/prover.sh"; }
    QString reader() const { return dir + "/reader.sh"; }
    QString writerLog() const { return dir + "/writer.log"; }
};

ToolSet writeTools(const QString& dir);
void setAnswers(const ToolSet& tools, const QByteArray& answers);
void setDefaultAnswer(const ToolSet& tools, const QByteArray& answer);

struct DriverSpec {
    QString name;
    QString group = QStringLiteral("none");
    QString writer; // paths of the tools
    QString prover;
    QString reader;
    QString input = QStringLiteral("stdin");
    bool fast = false;
};

// A mechanism file with the given trust and drivers; prover and reader get "${file}" as
// their one parameter when input is "file".
QByteArray mechanismXml(const QString& trust, const std::vector<DriverSpec>& drivers);

// One goal of a .pos file: its status, its proof state, and its element for the
// mechanism (status and drivers); hasMechanism false leaves the element out.
struct GoalSpec {
    QString status = QStringLiteral("Unproved");
    QString proofState = QStringLiteral("Unproved");
    bool hasMechanism = true;
    QString mechanismStatus = QStringLiteral("Unproved");
    std::vector<std::pair<QString, QString>> drivers; // name, status
};

using GroupSpec = std::pair<QString, std::vector<GoalSpec>>;

QByteArray posXml(const QString& mechanism, const std::vector<GroupSpec>& groups);

} // namespace faketools
