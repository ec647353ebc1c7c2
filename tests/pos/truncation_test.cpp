// Every prefix of a real status file, as a kill or a full disk could leave it: none may
// crash a reader, and none may be loaded as a smaller document that a save would then
// write back over the user's file.

#include "common/faketools.h"
#include "common/testutil.h"
#include "director/ProofDirector.h"
#include "pos/pos.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <list>
#include <string>

namespace {

// One group of the example's status file with the file's own head and root end: about
// 3 KB, so that every prefix of it runs in seconds even under the sanitizers.
QByteArray realStatusFile() {
    const QByteArray whole = testutil::readFile(POVRUN_SOURCE_DIR "/examples/smt/tank.pos");
    const QByteArray open = "    <Proof_Obligation>\n";
    const QByteArray close = "    </Proof_Obligation>\n";
    const int head = whole.indexOf(open);
    int start = head;
    for (int group = 0; group < 3 && start >= 0; ++group)
        start = whole.indexOf(open, start + 1);
    const int end = whole.indexOf(close, start);
    if (head < 0 || start < 0 || end < 0)
        return QByteArray();
    return whole.left(head) + whole.mid(start, end + close.size() - start) +
           "</Proof_Obligations>\n";
}

// Prefixes come in growing order, so writing over the previous one never shrinks the
// file: a truncation to zero would make the file system flush it, thousands of times.
void growFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_EQ(file.write(content), content.size());
}

} // namespace

TEST(Truncation, NoPrefixOfAStatusFileCrashesOrIsSavedBack) {
    const QByteArray full = realStatusFile();
    ASSERT_GT(full.size(), 2000);
    ASSERT_LT(full.size(), 5000);
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const faketools::ToolSet tools = faketools::writeTools(dir.path());
    faketools::DriverSpec driver;
    driver.name = "z3";
    driver.writer = tools.writer();
    driver.prover = tools.prover();
    driver.reader = tools.reader();
    testutil::writeFile(dir.filePath("z3.xml"), faketools::mechanismXml("always", {driver}));
    const QString posPath = dir.filePath("tank.pos");
    const std::string posPathUtf8 = posPath.toStdString();
    ProofDirector director("tank", dir.filePath("z3.xml").toStdString(), posPathUtf8,
                           dir.filePath("tank.pog").toStdString(), dir.path().toStdString(), {},
                           false, 1, 0, "", "", false);
    ASSERT_TRUE(director.isLoaded());

    testutil::writeFile(posPath, full);
    const QString wholeText = pos::documentOfFile(posPath).toString();
    ASSERT_FALSE(wholeText.isEmpty());
    ASSERT_TRUE(director.reloadPosFile()) << "every goal carries the z3 element";

    QFile::remove(posPath);
    int loaded = 0;
    for (int length = 0; length <= full.size(); ++length) {
        const QByteArray prefix = full.left(length);
        growFile(posPath, prefix);
        const QDomDocument doc = pos::documentOfFile(posPath);
        pos::metrics_t metrics;
        metrics.total = 7;
        std::list<std::string> names{"kept"};
        const bool counted = pos::getMetrics(posPathUtf8, metrics);
        const bool listed = pos::getMechanisms(posPathUtf8, names);
        const bool reloaded = director.reloadPosFile();
        if (!doc.isNull()) {
            // Only a prefix that still holds the whole root element may load, and then
            // it must be the whole document.
            ++loaded;
            EXPECT_EQ(doc.toString(), wholeText) << "prefix of " << length << " bytes";
            EXPECT_TRUE(counted && listed && reloaded) << length;
            continue;
        }
        EXPECT_FALSE(counted) << length;
        EXPECT_EQ(metrics.total, 7u) << "metrics untouched for " << length;
        EXPECT_FALSE(listed) << length;
        EXPECT_EQ(names, std::list<std::string>{"kept"}) << length;
        EXPECT_FALSE(reloaded) << length;
        EXPECT_FALSE(director.savePosFile()) << "a refused file is never saved: " << length;
        ASSERT_EQ(testutil::readFile(posPath), prefix) << "prefix of " << length << " bytes";
    }
    // The full file and the one without its last line end.
    EXPECT_EQ(loaded, 2);
}
