#include "SmtScript.h"

#include <QRegularExpression>
#include <QTextStream>

namespace smt {

namespace {

const QString MARK_PREFIX = QStringLiteral("@po ");
const QString GET_MODEL = QStringLiteral("(get-model)");

void writeBlock(QTextStream& out, const Group& group, const Obligation& obligation,
                const Address& address, int index, const ScriptOptions& options) {
    out << "\n; group " << address.first << " \"" << group.name << "\", obligation "
        << address.second << " \"" << obligation.name << "\"\n";
    out << "(echo \"" << blockMark(index) << "\")\n(push 1)\n";
    for (const QString& declaration : group.declarations)
        out << declaration << '\n';
    for (const QString& declaration : obligation.declarations)
        out << declaration << '\n';
    for (const QString& hypothesis : obligation.hypotheses)
        out << "(assert " << hypothesis << ")\n";
    out << "(assert (not " << obligation.goal << "))\n(check-sat)\n";
    if (options.models)
        out << GET_MODEL << '\n';
    out << "(pop 1)\n";
}

QString counted(std::size_t count, const char* noun) {
    return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(noun),
                                                    count == 1 ? QString() : QStringLiteral("s"));
}

} // namespace

bool buildScript(const ObligationFile& file, const std::vector<Address>& addresses,
                 const ScriptOptions& options, QString& script, QString& error) {
    for (const Address& address : addresses) {
        // A status file of another component asks for goals this file may lack; writing
        // nothing makes the job fail instead of proving some other goal.
        if (address.first >= file.groups.size()) {
            error = QStringLiteral("no goal %1 of group %2: the file has %3")
                        .arg(address.second)
                        .arg(address.first)
                        .arg(counted(file.groups.size(), "group"));
            return false;
        }
        const Group& group = file.groups[address.first];
        if (address.second >= group.obligations.size()) {
            error = QStringLiteral("no goal %1 of group %2 \"%3\": it has %4")
                        .arg(address.second)
                        .arg(address.first)
                        .arg(group.name, counted(group.obligations.size(), "goal"));
            return false;
        }
    }
    QString text;
    QTextStream out(&text);
    out << "; " << addresses.size() << " obligation(s) of " << options.source << '\n';
    out << "(set-option :print-success false)\n";
    if (options.models)
        out << "(set-option :produce-models true)\n";
    out << "(set-logic " << options.logic << ")\n";
    int index = 0;
    for (const Address& address : addresses) {
        const Group& group = file.groups[address.first];
        writeBlock(out, group, group.obligations[address.second], address, index++, options);
    }
    out.flush();
    script = text;
    return true;
}

QString blockMark(int index) {
    return MARK_PREFIX + QString::number(index);
}

int blockOfOutputLine(const QString& line) {
    QString text = line.trimmed();
    if (text.size() >= 2 && text.startsWith(QLatin1Char('"')) && text.endsWith(QLatin1Char('"')))
        text = text.mid(1, text.size() - 2);
    if (!text.startsWith(MARK_PREFIX))
        return -1;
    bool ok = false;
    const int index = text.mid(MARK_PREFIX.size()).toInt(&ok);
    return ok && index >= 0 ? index : -1;
}

ScriptOutline outlineOfScript(const QString& script) {
    static const QRegularExpression echo(QStringLiteral("^\\(echo\\s+\"([^\"]*)\"\\)\\s*$"));
    ScriptOutline outline;
    for (const QString& line : script.split(QLatin1Char('\n'))) {
        const QString text = line.trimmed();
        const QRegularExpressionMatch match = echo.match(text);
        if (match.hasMatch()) {
            const int block = blockOfOutputLine(match.captured(1));
            if (block >= 0)
                outline.blocks.push_back(block);
        } else if (text == GET_MODEL) {
            outline.models = true;
        }
    }
    return outline;
}

} // namespace smt
