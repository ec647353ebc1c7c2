#pragma once
// Small .pos documents for the status file tests.

#include <QDomDocument>
#include <QDomElement>
#include <QStringList>

namespace posxml {

// A .pos text whose root holds one "Proof_Obligation" per entry of `groups`, each entry
// being the goals of that group as XML.
inline QByteArray text(const QStringList& groups) {
    QString xml = QStringLiteral("<?xml version=\"1.0\"?>\n<Proof_Obligations>\n");
    for (const QString& group : groups)
        xml += QStringLiteral("<Proof_Obligation><Tag>g</Tag>%1</Proof_Obligation>\n").arg(group);
    return (xml + QStringLiteral("</Proof_Obligations>\n")).toUtf8();
}

inline QDomDocument document(const QStringList& groups) {
    QDomDocument doc;
    doc.setContent(text(groups));
    return doc;
}

// The first "Simple_Goal" of `doc`; `doc` must outlive its use.
inline QDomElement firstGoal(const QDomDocument& doc) {
    return doc.documentElement().firstChildElement().firstChildElement("Simple_Goal");
}

} // namespace posxml
