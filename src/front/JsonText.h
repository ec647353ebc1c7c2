#pragma once
// JSON text written straight into bytes, for the report's one record per job: building a
// QJsonObject and serialising it costs more than the job's own bookkeeping, and the
// report is written on the jobs' path. Members come out in the order they are written,
// so a caller writes them in the order a QJsonDocument would (sorted by name). Strings
// are escaped the same way; doubles take their shortest exact form.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>

class JsonText {
public:
    JsonText& beginObject() { return open('{'); }
    JsonText& endObject() { return close('}'); }
    JsonText& beginArray() { return open('['); }
    JsonText& endArray() { return close(']'); }
    // The name of the next member of the object being written.
    JsonText& key(const char* name);

    JsonText& value(const QString& text);
    JsonText& valueOrNull(const QString& text); // null for a null QString
    JsonText& value(const char* text);
    JsonText& value(const QStringList& texts);
    JsonText& value(std::int64_t number);
    JsonText& value(double number);
    JsonText& value(bool truth);

    const QByteArray& bytes() const { return text; }

private:
    void separate(); // a comma before any but the first item of an object or an array
    JsonText& open(char bracket);
    JsonText& close(char bracket);
    void appendString(const QString& text);

    QByteArray text;
    bool first = true;
};
