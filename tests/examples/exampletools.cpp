#include "exampletools.h"

#include <QDomDocument>

namespace exampletools {

testutil::RunResult runWriter(const QStringList& args) {
    return testutil::run(QStringLiteral(SMTWRITER_BIN), args);
}

testutil::RunResult runReader(const QStringList& args, const QByteArray& solverOutput) {
    return testutil::run(QStringLiteral(SMTREADER_BIN), args, QString(), solverOutput);
}

QDomElement goalOf(const QString& posPath, int group, int goal) {
    QDomDocument document;
    if (!document.setContent(testutil::readFile(posPath)))
        return QDomElement();
    QDomElement element = document.documentElement().firstChildElement("Proof_Obligation");
    for (int i = 0; i < group && !element.isNull(); ++i)
        element = element.nextSiblingElement("Proof_Obligation");
    QDomElement found = element.firstChildElement("Simple_Goal");
    for (int i = 0; i < goal && !found.isNull(); ++i)
        found = found.nextSiblingElement("Simple_Goal");
    return found;
}

QString mechanismStatus(const QDomElement& goal, const QString& mechanism) {
    for (QDomElement element = goal.firstChildElement("Mechanism"); !element.isNull();
         element = element.nextSiblingElement("Mechanism"))
        if (element.attribute("name") == mechanism)
            return element.attribute("status");
    return QStringLiteral("(none)");
}

} // namespace exampletools
