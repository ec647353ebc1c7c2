#include "replay_workspace.h"

#include "posgen.h"

#include "pos/pos.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>

namespace replaybench {

const QString MECHANISM_NAME = QStringLiteral("bench");
const QString DRIVER_NAME = QStringLiteral("d1");

namespace {

bool writeText(const QString& path, const QByteArray& text) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(text) == text.size() && file.flush();
}

// "always" trust: one "Proved" answer settles a goal, so a finished run shows every
// replayed goal as "Proved".
QByteArray mechanismXml(const tools_t& tools) {
    return QStringLiteral("<mechanism trust=\"always\">\n"
                          "  <driver name=\"%1\" group=\"none\">\n"
                          "    <writer name=\"writer\" path=\"%2\"/>\n"
                          "    <prover name=\"prover\" path=\"%3\" input=\"stdin\"/>\n"
                          "    <reader name=\"reader\" path=\"%4\"/>\n"
                          "  </driver>\n"
                          "</mechanism>\n")
        .arg(DRIVER_NAME, tools.writer, tools.prover, tools.reader)
        .toUtf8();
}

} // namespace

bool prepare(const QString& dir, const tools_t& tools, workspace_t& workspace) {
    const QDir root(dir);
    workspace.dir = dir;
    workspace.mechanismFile = root.filePath(MECHANISM_NAME + ".xml");
    workspace.pogFile = root.filePath(QStringLiteral("comp.pog"));
    workspace.posFile = root.filePath(QStringLiteral("comp.pos"));
    workspace.tempDir = root.filePath(QStringLiteral("tmp"));
    workspace.tools = tools;
    return writeText(workspace.mechanismFile, mechanismXml(tools)) &&
           writeText(workspace.pogFile, "the writer never reads this file\n") &&
           root.mkpath(QStringLiteral("tmp"));
}

bool writePos(const workspace_t& workspace, unsigned goals, unsigned replayable) {
    posgen::replay_options_t options;
    options.mechanism = MECHANISM_NAME;
    options.driver = DRIVER_NAME;
    options.goalsPerGroup = GOALS_PER_GROUP;
    options.groups = (goals + GOALS_PER_GROUP - 1) / GOALS_PER_GROUP;
    options.replayableGoals = replayable;
    return posgen::writeReplayableFile(workspace.posFile, options);
}

long provedGoals(const QString& posFile) {
    const QDomDocument doc = pos::documentOfFile(posFile);
    if (doc.isNull())
        return -1;
    long proved = 0;
    const QDomNodeList goals = doc.elementsByTagName(pos::TAG_SIMPLE_GOAL);
    for (int i = 0; i < goals.size(); ++i) {
        if (goals.at(i).toElement().attribute(pos::ATTR_STATUS) == pos::ATTR_VALUE_PROVED)
            ++proved;
    }
    return proved;
}

} // namespace replaybench
