// povrun run by make -jN: it shares make's job slots and gives back every token it took.

#include "common/scene.h"

#include <QProcess>
#include <QThread>
#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using scene::Scene;
using scene::settledBy;

namespace {

// The scene's prover marks itself in the folder `running` while it runs, and writes to
// `running`.counts how many were running when it started.
void countProvers(Scene& s, const QString& running, const QString& sleep, int goals = 8) {
    QDir().mkpath(running);
    const QString script = "touch %1/$$\nls %1 | wc -l >> %1.counts\nsleep %2\ncat\nrm %1/$$\n";
    testutil::writeScript(s.path("counted.sh"), script.arg(running, sleep).toUtf8());
    s.drivers[0].prover = s.path("counted.sh");
    s.writeMechanism();
    s.writePos({{"G", {static_cast<std::size_t>(goals), settledBy("d")}}});
}

} // namespace

// Four povruns at -c 4 under make -j4 run four provers at once, not sixteen. The first
// to end frees a slot that the others take as a token; make finds every token back (it
// warns on standard error otherwise).
TEST(Jobserver, MakeRunsAtMostItsSlotsAcrossPovruns) {
    Scene scenes[4];
    QByteArray makefile = "all: c0 c1 c2 c3\n";
    for (int n = 0; n < 4; ++n) {
        countProvers(scenes[n], scenes[0].path("running"), "0.3", 2 + 4 * n);
        makefile += "c" + QByteArray::number(n) + ":\n\t+cd " + scenes[n].dir.path().toUtf8() +
                    " && " POVRUN_BIN " " + scenes[n].options.join(' ').toUtf8() + " -c 4\n";
    }
    scenes[0].put("Makefile", makefile);
    const testutil::RunResult r = testutil::run("make", {"-sj4", "-C", scenes[0].dir.path()});
    EXPECT_EQ(std::to_string(r.exitCode) + r.err, "0");
    const QByteArray counts = scenes[0].state("running.counts");
    int most = 0;
    for (const QByteArray& count : counts.split('\n'))
        most = std::max(most, count.toInt());
    EXPECT_EQ(most, 4);
    EXPECT_EQ(counts.count('\n'), 32) << "every goal proved once";
}

// A jobserver of 3 slots: povrun at -c 4 holds the implicit one and both tokens, never
// more, and hands back the very bytes it read when stopped mid-run.
TEST(Jobserver, FifoTokensAreHeldAsAllowedAndHandedBackOnStop) {
    Scene s;
    countProvers(s, s.path("running"), "30");
    ASSERT_EQ(mkfifo(s.path("fifo").toUtf8().constData(), 0600), 0);
    const int fifo = open(s.path("fifo").toUtf8().constData(), O_RDWR | O_NONBLOCK);
    ASSERT_EQ(write(fifo, "ab", 2), 2);
    qputenv("MAKEFLAGS", " -j3 --jobserver-auth=fifo:" + s.path("fifo").toUtf8());
    QProcess povrun;
    povrun.setWorkingDirectory(s.dir.path());
    povrun.start(POVRUN_BIN, s.options + QStringList{"-c", "4"});
    qunsetenv("MAKEFLAGS");
    for (int waited = 0; s.state("running.counts").count('\n') < 3; waited += 10)
        ASSERT_FALSE(waited > 30000 || povrun.waitForFinished(10)) << "not 3 at once";
    QThread::msleep(500);
    EXPECT_EQ(s.state("running.counts").count('\n'), 3) << "a fourth prover started";
    ::kill(static_cast<pid_t>(povrun.processId()), SIGTERM);
    EXPECT_TRUE(povrun.waitForFinished(30000) && povrun.exitCode() == 1);
    char tokens[3] = {};
    EXPECT_EQ(read(fifo, tokens, 3), 2);
    EXPECT_TRUE(QByteArray(tokens) == "ab" || QByteArray(tokens) == "ba") << tokens;
    close(fifo);
}
