#pragma once
// The one test scene of the director, command-line and chaos tests: a temporary folder
// holding the fake tools, m.xml (mechanism m, trust "always", driver d), an empty comp.pog,
// an empty tmp folder and pos/comp.pos, alone in its folder, where d had proved the one
// goal of group G. Runs of povrun use the folder as current folder and relative names.

#include "common/faketools.h"
#include "common/testutil.h"
#include "director/ProofDirector.h"

#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace scene {

extern const QString POS;                 // "pos/comp.pos"
extern const QByteArray FOLDER, NONE;     // what state() says of a folder or of nothing

// A goal the mechanism's driver `driver` had proved: a replay gives it that driver again.
faketools::GoalSpec settledBy(const QString& driver, const QString& goalStatus = "Unproved");

struct Scene {
    QTemporaryDir dir;
    faketools::ToolSet tools = faketools::writeTools(dir.path());
    QString trust = QStringLiteral("always");
    std::vector<faketools::DriverSpec> drivers = {driver("d")};
    QStringList options = {"-s", POS, "-p", "comp.pog", "-d", "tmp", "-m", "m.xml"};

    Scene();
    QString path(const QString& name) const { return dir.filePath(name); }
    // A driver named `name` on the fake tools.
    faketools::DriverSpec driver(const QString& name) const;
    // What stands at a path: the file's bytes, FOLDER or NONE; put() makes it so.
    QByteArray state(const QString& name) const;
    void put(const QString& name, const QByteArray& what) const;
    // Writes m.xml from trust and drivers; the second form first sets them.
    void writeMechanism() const;
    void writeMechanism(const QString& newTrust, const QStringList& driverNames);
    void writePos(const std::vector<faketools::GroupSpec>& groups) const;

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

// What `action` wrote on std::cout.
std::string capturedStdout(const std::function<void()>& action);

// Starts povrun in `workDir` with outputs thrown away and `mark` in the environment of it
// and every tool it starts; SIGINT and SIGHUP get their default action back, since povrun
// keeps a signal ignored when it starts ignored (a background job of a script). -1 on failure.
pid_t spawnPovrun(const QStringList& args, const QString& workDir, const QByteArray& mark);

// Pids of the live processes (zombies do not count) whose environment holds `mark`.
QStringList processesMarkedWith(const QByteArray& mark);

} // namespace scene
