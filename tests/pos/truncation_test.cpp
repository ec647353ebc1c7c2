// Every prefix of a real status file, as a kill or a full disk could leave it: none may
// crash a reader, and none may be loaded as a smaller document that a save would then
// write back over the user's file.

#include "common/scene.h"
#include "pos/pos.h"

#include <QFile>
#include <gtest/gtest.h>

TEST(Truncation, NoPrefixOfAStatusFileCrashesOrIsSavedBack) {
    // The example's head and first group, its goals' "z3" elements named m: 3 KB, quick to cut.
    const QByteArray example = testutil::readFile(POVRUN_SOURCE_DIR "/examples/smt/tank.pos");
    const QByteArray full = QByteArray(example.left(example.indexOf("    </Proof_Obligation>\n") + 24) +
                             "</Proof_Obligations>\n").replace("<Mechanism name=\"z3\"", "<Mechanism name=\"m\"");
    scene::Scene s;
    s.writeMechanism("always", {"z3"});
    const QString posPath = s.path(scene::POS);
    const std::string pos = posPath.toStdString();
    auto director = s.director();
    // The director holds the whole document first: a refused prefix must drop it.
    s.put(scene::POS, full);
    ASSERT_TRUE(director->reloadPosFile() && QFile::remove(posPath));
    std::vector<int> loaded;
    for (int length = 0; length <= full.size(); ++length) {
        QFile file(posPath); // grown, never truncated: that spares thousands of flushes
        ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.write(full.left(length)) == length);
        file.close();
        pos::metrics_t metrics;
        metrics.total = 7;
        std::list<std::string> names{"kept"};
        const bool counted = pos::getMetrics(pos, metrics), listed = pos::getMechanisms(pos, names),
                   reloaded = director->reloadPosFile(), whole = !pos::documentOfFile(posPath).isNull();
        if (whole)
            loaded.push_back(length);
        EXPECT_TRUE(counted == whole && listed == whole && reloaded == whole) << length;
        if (!whole) {
            EXPECT_TRUE(metrics.total == 7 && names.front() == "kept") << "untouched at " << length;
            EXPECT_FALSE(director->savePosFile()) << "a refused file is never saved: " << length;
            ASSERT_EQ(testutil::readFile(posPath), full.left(length)) << length;
        }
    }
    // Only the whole file loads, with or without its last line end.
    EXPECT_EQ(loaded, (std::vector<int>{full.size() - 1, full.size()}));
}
