#include "ObligationFile.h"

#include <QFile>
#include <QXmlStreamReader>

namespace smt {

namespace {

// Reads one element's text; nested elements are a mistake in this format.
bool readText(QXmlStreamReader& xml, QString& text) {
    text = xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement).trimmed();
    return !xml.hasError();
}

bool readObligation(QXmlStreamReader& xml, Obligation& obligation) {
    obligation.name = xml.attributes().value(QStringLiteral("name")).toString();
    bool hasGoal = false;
    while (xml.readNextStartElement()) {
        QString text;
        const QStringRef tag = xml.name();
        if (tag == QLatin1String("declare") && readText(xml, text)) {
            obligation.declarations << text;
        } else if (tag == QLatin1String("hypothesis") && readText(xml, text)) {
            obligation.hypotheses << text;
        } else if (tag == QLatin1String("goal") && !hasGoal && readText(xml, text)) {
            obligation.goal = text;
            hasGoal = true;
        } else {
            if (!xml.hasError())
                xml.raiseError(QStringLiteral("unexpected <%1> in obligation \"%2\"")
                                   .arg(tag.toString(), obligation.name));
            return false;
        }
    }
    if (!hasGoal && !xml.hasError())
        xml.raiseError(QStringLiteral("obligation \"%1\" has no <goal>").arg(obligation.name));
    return !xml.hasError();
}

bool readGroup(QXmlStreamReader& xml, Group& group) {
    group.name = xml.attributes().value(QStringLiteral("name")).toString();
    while (xml.readNextStartElement()) {
        QString text;
        if (xml.name() == QLatin1String("declare") && readText(xml, text)) {
            group.declarations << text;
        } else if (xml.name() == QLatin1String("obligation")) {
            group.obligations.emplace_back();
            if (!readObligation(xml, group.obligations.back()))
                return false;
        } else {
            if (!xml.hasError())
                xml.raiseError(QStringLiteral("unexpected <%1> in group \"%2\"")
                                   .arg(xml.name().toString(), group.name));
            return false;
        }
    }
    return !xml.hasError();
}

bool readRoot(QXmlStreamReader& xml, ObligationFile& file, const std::set<std::size_t>* wanted) {
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("obligations")) {
        if (!xml.hasError())
            xml.raiseError(QStringLiteral("the root element must be <obligations>"));
        return false;
    }
    file.component = xml.attributes().value(QStringLiteral("component")).toString();
    while ((wanted == nullptr || (!wanted->empty() && file.groups.size() <= *wanted->rbegin())) &&
           xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("group")) {
            xml.raiseError(
                QStringLiteral("unexpected <%1> in <obligations>").arg(xml.name().toString()));
            return false;
        }
        file.groups.emplace_back();
        if (wanted != nullptr && wanted->count(file.groups.size() - 1) == 0)
            xml.skipCurrentElement();
        else if (!readGroup(xml, file.groups.back()))
            return false;
    }
    return !xml.hasError();
}

} // namespace

bool readObligationFile(const QString& path, ObligationFile& file, QString& error,
                        const std::set<std::size_t>* wanted) {
    QFile input(path);
    if (!input.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1: %2").arg(path, input.errorString());
        return false;
    }
    file = ObligationFile();
    QXmlStreamReader xml(&input);
    if (readRoot(xml, file, wanted))
        return true;
    error = QStringLiteral("%1:%2: %3").arg(path).arg(xml.lineNumber()).arg(xml.errorString());
    return false;
}

} // namespace smt
