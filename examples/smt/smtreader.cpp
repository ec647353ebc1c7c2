// smtreader: reads a solver's output on standard input and prints one verdict line per
// obligation of the script it was given ("Proved", "Disproved" or "Unknown"), in the
// script's order. A counterexample of a disproved obligation follows its verdict when the
// script asked for models.

#include "SmtScript.h"
#include "SmtVerdicts.h"

#include <QCoreApplication>
#include <QFile>
#include <cstdio>

namespace {

const char USAGE[] = "usage: smtreader SCRIPT < SOLVER-OUTPUT\n";

QString readStandardInput() {
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(input.readAll());
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList words = app.arguments().mid(1);
    if (words.size() != 1 || words[0].isEmpty() || words[0].startsWith(QLatin1Char('-'))) {
        std::fprintf(stderr, "smtreader: expected exactly one script file\n%s", USAGE);
        return 2;
    }
    QFile script(words[0]);
    if (!script.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "smtreader: cannot read %s: %s\n", qUtf8Printable(words[0]),
                     qUtf8Printable(script.errorString()));
        return 1;
    }
    const smt::ScriptOutline outline = smt::outlineOfScript(QString::fromUtf8(script.readAll()));
    const std::vector<smt::Verdict> verdicts = smt::verdictsOfOutput(outline, readStandardInput());
    for (const smt::Verdict& verdict : verdicts) {
        std::printf("%s\n", qUtf8Printable(verdict.text));
        if (outline.models)
            for (const QString& line : verdict.model)
                std::printf("%s\n", qUtf8Printable(line));
    }
    return 0;
}
