#include "pos/pos.h"

#include <QFile>
#include <QIODevice>

namespace pos {

QDomDocument documentOfDevice(QIODevice& device) {
    QDomDocument doc;
    // Qt keeps the part read before a parse error; treat any error as "no document".
    if (!doc.setContent(&device))
        return QDomDocument();
    return doc;
}

QDomDocument documentOfFile(const QString& path) {
    QFile file(path);
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return QDomDocument();
    return documentOfDevice(file);
}

// TODO(status file): statuses, document operations and metrics land with their issue.
bool getMechanisms(const std::string& path, std::list<std::string>&) {
    return !documentOfFile(QString::fromStdString(path)).isNull();
}
bool getMetrics(const std::string&, metrics_t&) { return false; }

} // namespace pos
