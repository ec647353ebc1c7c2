#pragma once
// Helpers shared by every test binary: files in temporary folders and running programs.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <string>

namespace testutil {

struct RunResult {
    int exitCode = -1;
    bool crashed = false; // ended by a signal, or could not be started
    bool timedOut = false;
    std::string out;
    std::string err;
};

// Runs program with args in workDir (current folder when empty), feeding stdinData.
// Kills it after timeoutMs and reports timedOut.
RunResult run(const QString& program, const QStringList& args, const QString& workDir = QString(),
              const QByteArray& stdinData = QByteArray(), int timeoutMs = 60000);

// Runs the povrun binary built with the tests.
RunResult runPovrun(const QStringList& args, const QString& workDir = QString(),
                    int timeoutMs = 60000);

void writeFile(const QString& path, const QByteArray& content);
QByteArray readFile(const QString& path);

// Writes a shell script (a "#!/bin/sh" line is added in front) and makes it executable.
void writeScript(const QString& path, const QByteArray& body);

} // namespace testutil
