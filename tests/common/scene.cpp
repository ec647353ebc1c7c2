#include "common/scene.h"

#include "pos/pos.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace scene {

const QString POS = QStringLiteral("pos/comp.pos");
const QByteArray FOLDER = "(folder)", NONE = "(none)";

GoalSpec settledBy(const QString& driver, const QString& goalStatus) {
    return {goalStatus, true, "Unproved", {{driver, "Proved"}}};
}

Scene::Scene() {
    for (const char* tool : {"writer.sh", "prover.sh", "reader.sh"}) {
        const QString source = QStringLiteral(POVRUN_SOURCE_DIR "/tests/common/tools/") + tool;
        testutil::writeFile(path(tool), testutil::readFile(source));
        QFile::setPermissions(path(tool), QFile::permissions(source));
    }
    drivers = {driver("d")};
    for (const char* folder : {"tmp", "pos"})
        put(folder, FOLDER);
    put("comp.pog", "");
    writeMechanism();
    writePos({{"G", {settledBy("d")}}});
}

DriverSpec Scene::driver(const QString& name) const {
    return {name, "none", path("writer.sh"), path("prover.sh"), path("reader.sh")};
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

// Prover and reader get "${file}" as their one parameter when input is "file".
void Scene::writeMechanism() const {
    QString xml = QStringLiteral("<mechanism trust=\"%1\">\n").arg(trust);
    for (const DriverSpec& d : drivers) {
        const QString fileParam =
            d.input == "file" ? QStringLiteral("<param value=\"${file}\"/>") : QString();
        xml += QStringLiteral("  <driver name=\"%1\" group=\"%2\"%8>\n"
                              "    <writer name=\"w\" path=\"%3\"/>\n"
                              "    <prover name=\"p\" path=\"%4\" input=\"%5\">%6</prover>\n"
                              "    <reader name=\"r\" path=\"%7\"/>\n"
                              "  </driver>\n")
                   .arg(d.name, d.group, d.writer, d.prover, d.input, fileParam, d.reader,
                        d.fast ? QStringLiteral(" fast=\"true\"") : QString());
    }
    put("m.xml", (xml + "</mechanism>\n").toUtf8());
}

void Scene::writeMechanism(const QString& newTrust, const QStringList& driverNames) {
    trust = newTrust;
    drivers.clear();
    for (const QString& name : driverNames)
        drivers.push_back(driver(name));
    writeMechanism();
}

void Scene::writePos(const std::vector<GroupSpec>& groups) const {
    QString xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Proof_Obligations>\n";
    for (const GroupSpec& group : groups) {
        xml += "  <Proof_Obligation>\n    <Tag>" + group.first + "</Tag>\n";
        for (const GoalSpec& goal : group.second) {
            xml += "    <Simple_Goal status=\"" + goal.status + "\">\n";
            if (goal.hasMechanism) {
                xml += "      <Mechanism name=\"m\" status=\"" + goal.mechanismStatus + "\">\n";
                for (const auto& d : goal.drivers)
                    xml +=
                        "        <Driver name=\"" + d.first + "\" status=\"" + d.second + "\"/>\n";
                xml += "      </Mechanism>\n";
            }
            xml += "    </Simple_Goal>\n";
        }
        xml += "  </Proof_Obligation>\n";
    }
    put(POS, (xml + "</Proof_Obligations>\n").toUtf8());
}

testutil::RunResult Scene::run(const QStringList& extra, int timeoutMs) const {
    return testutil::runPovrun(options + extra, dir.path(), timeoutMs);
}

std::unique_ptr<ProofDirector>
Scene::director(const std::string& selector, const std::string& driverFilter, bool fastOnly) const {
    return std::make_unique<ProofDirector>("comp", path("m.xml").toStdString(),
                                           path(POS).toStdString(), path("comp.pog").toStdString(),
                                           path("tmp").toStdString(), std::vector<std::string>(),
                                           false, 1u, 0, driverFilter, selector, fastOnly);
}

QString Scene::goalStatus(int group, int goal) const {
    const QDomElement g =
        pos::documentOfFile(path(POS)).elementsByTagName("Proof_Obligation").at(group).toElement();
    return g.elementsByTagName("Simple_Goal").at(goal).toElement().attribute("status");
}

QStringList Scene::leftInTmp() const {
    return QDir(path("tmp")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

} // namespace scene
