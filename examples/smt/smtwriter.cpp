// smtwriter: writes the obligations named by "-a GROUP PO" pairs into one SMT-LIB 2 script,
// in the order given, for a solver to check one after the other.

#include "ObligationFile.h"
#include "SmtScript.h"

#include <QCoreApplication>
#include <QFile>
#include <QSaveFile>
#include <cstdio>

namespace {

const char USAGE[] = "usage: smtwriter [-a GROUP PO]... -i OBLIGATIONS -o SCRIPT [-m] "
                     "[--logic LOGIC]\n";

struct WriterArgs {
    std::vector<smt::Address> addresses;
    QString input;
    QString output;
    smt::ScriptOptions options;
};

int usageError(const QString& why) {
    std::fprintf(stderr, "smtwriter: %s\n%s", qUtf8Printable(why), USAGE);
    return 2;
}

bool numberOf(const QString& word, unsigned long long& number) {
    bool ok = false;
    number = word.toULongLong(&ok, 10);
    return ok && !word.startsWith(QLatin1Char('+'));
}

// Fills args from the words after the program name; returns an empty text or what is wrong.
QString parseArgs(const QStringList& words, WriterArgs& args) {
    for (int i = 0; i < words.size(); ++i) {
        const QString& word = words[i];
        const int left = words.size() - i - 1;
        if (word == QLatin1String("-a")) {
            smt::Address address;
            if (left < 2 || !numberOf(words[i + 1], address.first) ||
                !numberOf(words[i + 2], address.second))
                return QStringLiteral("-a needs two numbers, a group and an obligation");
            args.addresses.push_back(address);
            i += 2;
        } else if (word == QLatin1String("-i") || word == QLatin1String("-o")) {
            QString& target = word == QLatin1String("-i") ? args.input : args.output;
            if (left < 1 || !target.isEmpty() || words[i + 1].isEmpty())
                return QStringLiteral("%1 needs one file name, given once").arg(word);
            target = words[++i];
        } else if (word == QLatin1String("-m")) {
            args.options.models = true;
        } else if (word == QLatin1String("--logic")) {
            if (left < 1 || words[i + 1].isEmpty())
                return QStringLiteral("--logic needs a logic name");
            args.options.logic = words[++i];
        } else {
            return QStringLiteral("unexpected argument \"%1\"").arg(word);
        }
    }
    if (args.input.isEmpty() || args.output.isEmpty())
        return QStringLiteral("both -i and -o are required");
    return QString();
}

int writeScript(const WriterArgs& args) {
    smt::ObligationFile file;
    QString error;
    std::set<std::size_t> groups;
    for (const smt::Address& address : args.addresses)
        groups.insert(address.first);
    if (!smt::readObligationFile(args.input, file, error, &groups)) {
        std::fprintf(stderr, "smtwriter: %s\n", qUtf8Printable(error));
        return 1;
    }
    smt::ScriptOptions options = args.options;
    options.source = args.input;
    QString script;
    if (!smt::buildScript(file, args.addresses, options, script, error)) {
        std::fprintf(stderr, "smtwriter: %s: %s\n", qUtf8Printable(args.input),
                     qUtf8Printable(error));
        return 1;
    }
    // All or nothing: a half-written script would be checked as if it were complete.
    QSaveFile output(args.output);
    if (!output.open(QIODevice::WriteOnly) || output.write(script.toUtf8()) < 0 ||
        !output.commit()) {
        std::fprintf(stderr, "smtwriter: cannot write %s: %s\n", qUtf8Printable(args.output),
                     qUtf8Printable(output.errorString()));
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    WriterArgs args;
    const QString problem = parseArgs(app.arguments().mid(1), args);
    if (!problem.isEmpty())
        return usageError(problem);
    return writeScript(args);
}
