#include "pos/posxml.h"

#include <QStringList>
#include <stdexcept>

namespace posxml {

QByteArray text(const QStringList& groups) {
    QString xml = QStringLiteral("<?xml version=\"1.0\"?>\n<Proof_Obligations>\n");
    for (const QString& group : groups)
        xml += QStringLiteral("<Proof_Obligation><Tag>g</Tag>%1</Proof_Obligation>\n").arg(group);
    return (xml + QStringLiteral("</Proof_Obligations>\n")).toUtf8();
}

QDomDocument document(const QStringList& groups) {
    QDomDocument doc;
    if (!doc.setContent(text(groups)))
        throw std::runtime_error("test document is not well-formed");
    return doc;
}

QDomElement firstGoal(const QDomDocument& doc) {
    return doc.documentElement().firstChildElement().firstChildElement(
        QStringLiteral("Simple_Goal"));
}

} // namespace posxml
