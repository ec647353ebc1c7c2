#include "common/testutil.h"

#include <QFile>
#include <QProcess>
#include <stdexcept>

namespace testutil {

RunResult run(const QString& program, const QStringList& args, const QString& workDir,
              const QByteArray& stdinData, int timeoutMs) {
    QProcess process;
    process.setWorkingDirectory(workDir); // an empty one keeps the current folder
    process.start(program, args);
    RunResult result;
    if (!process.waitForStarted(30000)) {
        result.crashed = true;
        result.err = process.errorString().toStdString();
        return result;
    }
    process.write(stdinData);
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        result.timedOut = true;
        process.kill();
        process.waitForFinished(5000);
    }
    result.crashed = process.exitStatus() != QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput().toStdString();
    result.err = process.readAllStandardError().toStdString();
    return result;
}

RunResult runPovrun(const QStringList& args, const QString& workDir, int timeoutMs) {
    return run(QStringLiteral(POVRUN_BIN), args, workDir, QByteArray(), timeoutMs);
}

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw std::runtime_error("cannot write " + path.toStdString());
    file.write(content);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void writeScript(const QString& path, const QByteArray& body) {
    writeFile(path, "#!/bin/sh\n" + body);
    QFile::setPermissions(path, QFile::permissions(path) | QFileDevice::ExeOwner |
                                    QFileDevice::ExeGroup | QFileDevice::ExeOther);
}

} // namespace testutil
