#pragma once
// Builds small .pos documents and files for the status file tests.

#include <QDomDocument>
#include <QDomElement>
#include <QString>

namespace posxml {

// A document whose root holds one "Proof_Obligation" per entry of `groups`, each the
// inner XML of that group (its goals).
QDomDocument document(const QStringList& groups);
// The text of such a document.
QByteArray text(const QStringList& groups);
// The first "Simple_Goal" of `doc`; the caller keeps `doc` alive while using it.
QDomElement firstGoal(const QDomDocument& doc);

} // namespace posxml
