// One copy of each repeated name and value in a loaded document.

#include "pos/pos.h"

#include <QDomNamedNodeMap>
#include <QHash>

namespace pos {

namespace {

using pool_t = QHash<QString, QString>;

QString shared(pool_t& pool, const QString& text) {
    auto it = pool.constFind(text);
    if (it == pool.constEnd())
        it = pool.insert(text, text);
    return it.value();
}

void shareIn(pool_t& pool, QDomElement element) {
    for (; !element.isNull(); element = element.nextSiblingElement()) {
        element.setTagName(shared(pool, element.tagName()));
        const QDomNamedNodeMap attributes = element.attributes();
        for (int i = 0; i < attributes.count(); ++i) {
            QDomAttr attribute = attributes.item(i).toAttr();
            attribute.setValue(shared(pool, attribute.value()));
        }
        shareIn(pool, element.firstChildElement());
    }
}

} // namespace

void shareRepeatedTexts(QDomDocument& doc) {
    pool_t pool;
    shareIn(pool, doc.documentElement());
}

} // namespace pos
