#pragma once
// The one test scene of the director, command-line and chaos tests: a temporary folder
// holding the fake tools (copies of tests/common/tools/), m.xml (mechanism m, trust "always",
// driver d), an empty comp.pog, an empty tmp folder and pos/comp.pos, alone in its folder,
// where d had proved the one goal of group G. Runs of povrun use the folder as current folder.

#include "common/testutil.h"
#include "director/ProofDirector.h"

#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace scene {

extern const QString POS;             // "pos/comp.pos"
extern const QByteArray FOLDER, NONE; // what state() says of a folder or of nothing

struct DriverSpec {
    QString name;
    QString group = QStringLiteral("none");
    QString writer; // paths of the tools
    QString prover;
    QString reader;
    QString input = QStringLiteral("stdin");
    bool fast = false;
};

// One goal of a .pos file: its status and its element for the mechanism (status and
// drivers); hasMechanism false leaves the element out.
struct GoalSpec {
    QString status = QStringLiteral("Unproved");
    bool hasMechanism = true;
    QString mechanismStatus = QStringLiteral("Unproved");
    std::vector<std::pair<QString, QString>> drivers; // name, status
};
using GroupSpec = std::pair<QString, std::vector<GoalSpec>>;

// A goal the mechanism's driver `driver` had proved: a replay gives it that driver again.
GoalSpec settledBy(const QString& driver, const QString& goalStatus = "Unproved");

struct Scene {
    QTemporaryDir dir;
    QString trust = QStringLiteral("always");
    std::vector<DriverSpec> drivers;
    QStringList options = {"-s", POS, "-p", "comp.pog", "-d", "tmp", "-m", "m.xml"};

    Scene();
    QString path(const QString& name) const { return dir.filePath(name); }
    QString writerLog() const { return path("writer.log"); }
    // The reader's answers, "g p ANSWER" lines.
    void setAnswers(const QByteArray& answers) const { put("answers", answers); }
    // A driver named `name` on the fake tools.
    DriverSpec driver(const QString& name) const;
    // What stands at a path: the file's bytes, FOLDER or NONE; put() makes it so.
    QByteArray state(const QString& name) const;
    void put(const QString& name, const QByteArray& what) const;
    // Writes m.xml from trust and drivers; the second form first sets them.
    void writeMechanism() const;
    void writeMechanism(const QString& newTrust, const QStringList& driverNames);
    void writePos(const std::vector<GroupSpec>& groups) const;

    // Runs povrun in the folder with options + extra.
    testutil::RunResult run(const QStringList& extra = {}, int timeoutMs = 60000) const;
    // A director on the scene's files, with absolute names.
    std::unique_ptr<ProofDirector> director(const std::string& selector = std::string(),
                                            const std::string& driverFilter = std::string(),
                                            bool fastOnly = false) const;
    // The status attribute of goal `goal` of group `group` in the status file as saved.
    QString goalStatus(int group, int goal) const;
    QStringList leftInTmp() const;
};

} // namespace scene
