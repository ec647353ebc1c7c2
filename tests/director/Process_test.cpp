// The process module on the awkward cases: output larger than a pipe, a reader that
// leaves early, tools ended by signals or that cannot run, and descriptors left open.

#include "director/Process.h"

#include "common/testutil.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

// Checks every signal as it leaves: the registry holds its lock then, so nothing reaps
// meanwhile, and a pid that waitid no longer knows was already reaped.
class CheckedRegistry : public process::Registry {
public:
    std::atomic<int> sent{0}, toReaped{0};

protected:
    void deliver(pid_t target, int signal) override {
        siginfo_t info{};
        ++sent;
        toReaped += waitid(P_PID, std::abs(target), &info, WEXITED | WNOHANG | WNOWAIT) != 0;
        Registry::deliver(target, signal);
    }
};

class ProcessTest : public ::testing::Test {
protected:
    process::command_t script(const QString& name, const QByteArray& body) {
        testutil::writeScript(dir.filePath(name), body);
        return {dir.filePath(name).toStdString(), {}};
    }
    void TearDown() override { EXPECT_EQ(registry.toReaped, 0) << "a reaped pid was signalled"; }

    QTemporaryDir dir;
    CheckedRegistry registry;
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
    // nothing hangs; the reader, reaped first, is not killed.
    const auto talker = script("talker", "exec head -c 1000000 /dev/zero\n");
    ASSERT_TRUE(process::runPipeline(talker, QString(), quiet, registry, run));
    EXPECT_TRUE(run.prover.crashed && run.prover.signal == SIGPIPE && run.reader.code == 3);

    // A prover that crashes takes its reader with it; a background child that writes for
    // ever into the reader's output does not keep the job alive.
    QElapsedTimer timer;
    timer.start();
    const auto crash = script("crash", "kill -SEGV $$\n"), stays = script("stays", "sleep 9\n");
    ASSERT_TRUE(process::runPipeline(crash, QString(), stays, registry, run));
    EXPECT_TRUE(run.reader.crashed && run.reader.signal == SIGKILL && registry.sent == 1);
    const auto endless = script("endless", "echo Proved\n(yes &)\n");
    ASSERT_TRUE(process::runPipeline(cat, QString(), endless, registry, run));
    EXPECT_TRUE(run.output.startsWith("Proved\ny\n") && timer.elapsed() < 5000);

    // A prover that cannot run leaves its reader an empty input, and says why.
    testutil::writeFile(dir.filePath("not-a-program"), "not executable");
    const process::command_t cannotRun{dir.filePath("not-a-program").toStdString(), {}};
    ASSERT_TRUE(process::runPipeline(cannotRun, QString(), cat, registry, run));
    EXPECT_TRUE(!run.prover.started && run.reader.started && run.output.isEmpty());
    EXPECT_EQ(run.prover.failure.toStdString(),
              "cannot exec '" + cannotRun.program.string() + "': " + strerror(EACCES));

    // Once a stop began, nothing starts.
    process::exit_t alone;
    registry.stop(std::chrono::milliseconds(0), std::chrono::milliseconds(0));
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

    // Out of descriptors, a job says so instead of failing in silence.
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{3, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    process::pipeline_t run;
    process::runPipeline(prover, QString(), reader, registry, run);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(run.reader.failure.toStdString(),
              std::string("cannot make a pipe: ") + strerror(EMFILE));
}
