// The status vocabulary: spellings of a status and back.

#include "pos/pos.h"

namespace pos {

// The dictionaries below are function-local statics: C++ guarantees a one-time,
// thread-safe construction, and the director's workers convert statuses concurrently.

QString strOfProofStatus(const status_t& s) {
    static const std::map<status_t, QString> textOfStatus = {
        {UNPROVED, ATTR_VALUE_UNPROVED},
        {UNKNOWN, ATTR_VALUE_UNKNOWN},
        {UNRELIABLY_PROVED, ATTR_VALUE_UNRELIABLY_PROVED},
        {PROVED, ATTR_VALUE_PROVED},
        {DISPROVED, ATTR_VALUE_DISPROVED},
    };
    return textOfStatus.at(s);
}

status_t proofStatusOfAttrValue(const QString& v) {
    static const std::map<QString, status_t> statusOfText = {
        {ATTR_VALUE_UNPROVED, UNPROVED},
        {ATTR_VALUE_UNKNOWN, UNKNOWN},
        {ATTR_VALUE_UNRELIABLY_PROVED, UNRELIABLY_PROVED},
        {ATTR_VALUE_PROVED, PROVED},
        {ATTR_VALUE_DISPROVED, DISPROVED},
        {ATTR_VALUE_PROVED_ZERO, PROVED},
        {ATTR_VALUE_PROVED_ONE, PROVED},
        {ATTR_VALUE_PROVED_TWO, PROVED},
        {ATTR_VALUE_PROVED_THREE, PROVED},
        {ATTR_VALUE_PROVED_UTIL, PROVED},
        {ATTR_VALUE_PROVED_FAST, PROVED},
    };
    return statusOfText.at(v);
}

std::out_of_range unknownText(const QString& file, const QString& attribute, const QString& text) {
    // The message is one line of C text: a control character of the offending text (a NUL
    // would even cut the message short) is shown by its code.
    QString shown;
    for (const QChar c : text)
        shown += c.unicode() < 0x20
                     ? QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'))
                     : QString(c);
    return std::out_of_range(QStringLiteral("%1: unknown %2 \"%3\" (map::at)")
                                 .arg(file, attribute, shown)
                                 .toStdString());
}

status_t proofStatusOfAttrValue(const QString& v, const QString& attribute, const QString& file) {
    try {
        return proofStatusOfAttrValue(v);
    } catch (const std::out_of_range&) {
        throw unknownText(file, attribute, v);
    }
}

std::ostream& operator<<(std::ostream& os, const status_t& s) {
    return os << strOfProofStatus(s).toStdString();
}

} // namespace pos
