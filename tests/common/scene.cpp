#include "common/scene.h"

#include "pos/pos.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fcntl.h>
#include <iostream>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <unistd.h>

namespace scene {

const QString POS = QStringLiteral("pos/comp.pos");
const QByteArray FOLDER = "(folder)", NONE = "(none)";

faketools::GoalSpec settledBy(const QString& driver, const QString& goalStatus) {
    faketools::GoalSpec goal;
    goal.status = goalStatus;
    goal.drivers = {{driver, "Proved"}};
    return goal;
}

Scene::Scene() {
    for (const char* folder : {"tmp", "pos"})
        put(folder, FOLDER);
    put("comp.pog", "");
    writeMechanism();
    writePos({{"G", {settledBy("d")}}});
}

faketools::DriverSpec Scene::driver(const QString& name) const {
    return {name, "none", tools.writer(), tools.prover(), tools.reader()};
}

QByteArray Scene::state(const QString& name) const {
    const QFileInfo info(path(name));
    return info.isDir() ? FOLDER : info.exists() ? testutil::readFile(path(name)) : NONE;
}

void Scene::put(const QString& name, const QByteArray& what) const {
    QFile::remove(path(name));
    QDir(path(name)).removeRecursively();
    if (what == FOLDER)
        QDir(dir.path()).mkdir(name);
    else if (what != NONE)
        testutil::writeFile(path(name), what);
}

void Scene::writeMechanism() const {
    put("m.xml", faketools::mechanismXml(trust, drivers));
}

void Scene::writeMechanism(const QString& newTrust, const QStringList& driverNames) {
    trust = newTrust;
    drivers.clear();
    for (const QString& name : driverNames)
        drivers.push_back(driver(name));
    writeMechanism();
}

void Scene::writePos(const std::vector<faketools::GroupSpec>& groups) const {
    put(POS, faketools::posXml("m", groups));
}

testutil::RunResult Scene::run(const QStringList& extra, int timeoutMs) const {
    return testutil::runPovrun(options + extra, dir.path(), timeoutMs);
}

std::unique_ptr<ProofDirector> Scene::director(const std::string& selector,
                                               const std::string& driverFilter,
                                               bool fastOnly) const {
    return std::make_unique<ProofDirector>(
        "comp", path("m.xml").toStdString(), path(POS).toStdString(),
        path("comp.pog").toStdString(), path("tmp").toStdString(), std::vector<std::string>(),
        false, 1u, 0, driverFilter, selector, fastOnly);
}

QString Scene::goalStatus(int group, int goal) const {
    const QDomDocument doc = pos::documentOfFile(path(POS));
    QDomElement g = doc.documentElement().firstChildElement("Proof_Obligation");
    for (int i = 0; i < group; ++i)
        g = g.nextSiblingElement("Proof_Obligation");
    QDomElement s = g.firstChildElement("Simple_Goal");
    for (int i = 0; i < goal; ++i)
        s = s.nextSiblingElement("Simple_Goal");
    return s.attribute("status");
}

QStringList Scene::leftInTmp() const {
    return QDir(path("tmp")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

std::string capturedStdout(const std::function<void()>& action) {
    std::ostringstream out;
    std::streambuf* const saved = std::cout.rdbuf(out.rdbuf());
    action();
    std::cout.rdbuf(saved);
    return out.str();
}

pid_t spawnPovrun(const QStringList& args, const QString& workDir, const QByteArray& mark) {
    std::vector<std::string> words{POVRUN_BIN};
    for (const QString& arg : args)
        words.push_back(arg.toStdString());
    std::vector<std::string> environment{"POVRUN_TEST_MARK=" + mark.toStdString()};
    for (char** variable = environ; *variable != nullptr; ++variable)
        environment.emplace_back(*variable);
    const auto pointers = [](std::vector<std::string>& strings) {
        std::vector<char*> result;
        for (std::string& s : strings)
            result.push_back(s.data());
        result.push_back(nullptr);
        return result;
    };
    std::vector<char*> argv = pointers(words), envp = pointers(environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, workDir.toLocal8Bit().constData());
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t restored;
    sigemptyset(&restored);
    sigaddset(&restored, SIGINT);
    sigaddset(&restored, SIGHUP);
    posix_spawnattr_setsigdefault(&attributes, &restored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    if (posix_spawn(&pid, POVRUN_BIN, &actions, &attributes, argv.data(), envp.data()) != 0)
        pid = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

QStringList processesMarkedWith(const QByteArray& mark) {
    QStringList found;
    const QByteArray needle = "POVRUN_TEST_MARK=" + mark;
    for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
        if (pid.toInt() <= 0)
            continue;
        const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
        const int afterName = stat.lastIndexOf(')');
        if (afterName < 0 || stat.mid(afterName + 2, 1) == "Z")
            continue;
        if (testutil::readFile("/proc/" + pid + "/environ").split('\0').contains(needle))
            found << pid;
    }
    return found;
}

} // namespace scene
