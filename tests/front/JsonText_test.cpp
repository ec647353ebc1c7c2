// The report's hand-written JSON must read exactly as Qt writes the same values: its
// readers, and the report's earlier versions, know that text.

#include "front/JsonText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

TEST(JsonText, WritesWhatQtWritesForTheSameValues) {
    const QString texts[] = {
        QString(),
        "",
        "plain",
        "quote \" backslash \\ slash /",
        // Two-, three- and four-byte UTF-8: the last one a surrogate pair in a QString.
        QString::fromUtf8("caf\xc3\xa9 \xe4\xb8\xad \xf0\x9f\x98\x80"),
        QString("\b\f\n\r\t") + QChar(1) + QChar(0x1f) + QChar(0x7f) + QChar(0),
    };
    const double numbers[] = {0.0, 3.0, 0.1, 0.000835969, 1e-7, 123456789.125, -2.5, 1e300};
    for (const QString& text : texts) {
        for (const double number : numbers) {
            const QJsonObject expected{{"a", text},
                                       {"b", QJsonArray::fromStringList({text, "x"})},
                                       {"c", number},
                                       {"d", qint64(-42)},
                                       {"e", QJsonArray{QJsonObject{{"f", true}}, false}},
                                       {"g", text.isNull() ? QJsonValue() : QJsonValue(text)},
                                       {"h", QJsonArray()}};
            JsonText json;
            json.beginObject().key("a").value(text).key("b").value(QStringList{text, "x"});
            json.key("c").value(number).key("d").value(std::int64_t{-42});
            json.key("e").beginArray().beginObject().key("f").value(true).endObject();
            json.value(false).endArray().key("g").valueOrNull(text);
            json.key("h").beginArray().endArray().endObject();
            EXPECT_EQ(json.bytes().toStdString(),
                      QJsonDocument(expected).toJson(QJsonDocument::Compact).toStdString());
        }
    }
}
