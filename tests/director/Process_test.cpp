// The process module on the awkward cases: output larger than a pipe, a reader that
// leaves early, tools ended by signals or that cannot run, and descriptors left open.

#include "director/Process.h"

#include "common/testutil.h"

#include <QDir>
#include <QTemporaryDir>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>

class ProcessTest : public ::testing::Test {
protected:
    process::command_t script(const QString& name, const QByteArray& body) {
        testutil::writeScript(dir.filePath(name), body);
        return {dir.filePath(name).toStdString(), {}};
    }

    QTemporaryDir dir;
    process::Registry registry;
};

static QStringList openDescriptors() {
    return QDir("/proc/self/fd").entryList(QDir::Files | QDir::System);
}

// Descriptors above the standard three that any child inherits: the ones this test
// process got from its own parent without close-on-exec.
static int inheritedDescriptors() {
    int count = 0;
    for (const QString& fd : openDescriptors())
        if (fd.toInt() > 2 && (fcntl(fd.toInt(), F_GETFD) & FD_CLOEXEC) == 0)
            ++count;
    return count;
}

TEST_F(ProcessTest, PipelinesReadEverythingAndEndAsTheirToolsDid) {
    const auto quiet = script("quiet", "exit 3\n"), cat = script("cat", "cat\n");
    const auto prover = script("p", "head -c 1000000 /dev/zero | tr '\\0' a\n"
                                    "head -c 1000000 /dev/zero | tr '\\0' e >&2\n");
    process::pipeline_t run;
    ASSERT_TRUE(process::runPipeline(prover, QString(), cat, registry, run));
    EXPECT_TRUE(!run.prover.crashed && run.output == QByteArray(1000000, 'a'));
    // Standard error is kept up to a limit and counted beyond it.
    EXPECT_EQ(run.prover.errors, QByteArray(process::ERRORS_KEPT, 'e'));
    EXPECT_EQ(run.prover.errorsDropped, 1000000 - process::ERRORS_KEPT);

    // A reader that leaves before reading ends a prover that talks on by SIGPIPE, and
    // nothing hangs.
    const auto talker = script("talker", "exec head -c 1000000 /dev/zero\n");
    ASSERT_TRUE(process::runPipeline(talker, QString(), quiet, registry, run));
    EXPECT_TRUE(run.prover.crashed && run.prover.signal == SIGPIPE && run.reader.code == 3);

    // A prover that cannot run leaves its reader an empty input.
    testutil::writeFile(dir.filePath("not-a-program"), "\177ELF nothing");
    const process::command_t cannotRun{dir.filePath("not-a-program").toStdString(), {}};
    ASSERT_TRUE(process::runPipeline(cannotRun, QString(), cat, registry, run));
    EXPECT_TRUE(!run.prover.started && run.reader.started && run.output.isEmpty());

    // Once a stop began, nothing starts.
    process::exit_t alone;
    registry.beginStop();
    EXPECT_FALSE(process::runAlone(quiet, registry, alone));
    EXPECT_FALSE(process::runPipeline(cat, QString(), cat, registry, run));
}

TEST_F(ProcessTest, ConcurrentJobsLeaveNoDescriptorOpen) {
    testutil::writeFile(dir.filePath("input"), "Proved\n");
    const auto prover = script("p", "cat\n");
    // The reader counts its own descriptors: the standard three, the listing's own and
    // what every child inherits, but no pipe of this job or of another.
    const auto reader = script("r", "cat\nls /proc/self/fd | wc -l >&2\n");
    const QByteArray descriptors = QByteArray::number(3 + 1 + inheritedDescriptors()) + "\n";
    const QStringList before = openDescriptors();
    std::atomic<int> answered{0};
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads)
        thread = std::thread([&] {
            for (int job = 0; job < 8; ++job) {
                process::pipeline_t run;
                process::runPipeline(prover, dir.filePath("input"), reader, registry, run);
                answered += run.output == "Proved\n" && run.reader.errors == descriptors;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answered, 32);
    EXPECT_EQ(openDescriptors(), before);
}
