#include "front/JsonText.h"

#include <QLocale>

void JsonText::separate() {
    if (!first)
        text += ',';
    first = false;
}

JsonText& JsonText::open(char bracket) {
    separate();
    text += bracket;
    first = true;
    return *this;
}

JsonText& JsonText::close(char bracket) {
    text += bracket;
    first = false;
    return *this;
}

JsonText& JsonText::key(const char* name) {
    separate();
    text += '"';
    text += name;
    text += "\":";
    first = true; // the value follows without a comma
    return *this;
}

void JsonText::appendString(const QString& value) {
    static const char HEX[] = "0123456789abcdef";
    text += '"';
    // Bytes of a multi-byte UTF-8 sequence are all 0x80 or above: only ASCII is escaped.
    for (const char byte : value.toUtf8()) {
        const unsigned char u = static_cast<unsigned char>(byte);
        if (u >= 0x20 && u != '"' && u != '\\') {
            text += byte;
            continue;
        }
        text += '\\';
        switch (u) {
        case '"':
            text += '"';
            break;
        case '\\':
            text += '\\';
            break;
        case '\b':
            text += 'b';
            break;
        case '\f':
            text += 'f';
            break;
        case '\n':
            text += 'n';
            break;
        case '\r':
            text += 'r';
            break;
        case '\t':
            text += 't';
            break;
        default:
            text += "u00";
            text += HEX[u >> 4];
            text += HEX[u & 0xf];
        }
    }
    text += '"';
}

JsonText& JsonText::value(const QString& value) {
    separate();
    appendString(value);
    return *this;
}

JsonText& JsonText::valueOrNull(const QString& value) {
    if (value.isNull()) {
        separate();
        text += "null";
        return *this;
    }
    return this->value(value);
}

JsonText& JsonText::value(const char* value) {
    return this->value(QString::fromUtf8(value));
}

JsonText& JsonText::value(const QStringList& values) {
    beginArray();
    for (const QString& one : values)
        value(one);
    return endArray();
}

JsonText& JsonText::value(std::int64_t number) {
    separate();
    text += QByteArray::number(static_cast<qlonglong>(number));
    return *this;
}

JsonText& JsonText::value(double number) {
    separate();
    text += qIsFinite(number) ? QByteArray::number(number, 'g', QLocale::FloatingPointShortest)
                              : QByteArray("null");
    return *this;
}

JsonText& JsonText::value(bool truth) {
    separate();
    text += truth ? "true" : "false";
    return *this;
}
