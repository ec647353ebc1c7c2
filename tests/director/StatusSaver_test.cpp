// The write-behind saver: the bytes it writes from kept group texts, and saves that fail.

#include "director/StatusSaver.h"
#include "pos/pos.h"

#include "common/testutil.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTextStream>
#include <gtest/gtest.h>
#include <iostream>
#include <streambuf>
#include <sys/mount.h>

// The bytes the whole document serialises to, the way a .pos has always been written.
static QByteArray wholeDocument(const QDomDocument& dom) {
    QByteArray bytes;
    QTextStream stream(&bytes, QIODevice::WriteOnly);
    stream.setCodec("UTF-8");
    dom.save(stream, pos::XML_INDENT, QDomNode::EncodingFromDocument);
    stream.flush();
    return bytes;
}

// A .pos of 40 groups declaring `encoding`, if any, with whatever a user's file may hold
// besides its groups.
static QByteArray shapedPos(const QByteArray& encoding) {
    QByteArray xml =
        encoding.isEmpty() ? "" : "<?xml version=\"1.0\" encoding=\"" + encoding + "\"?>\n";
    xml += "<!-- kept -->\n<Proof_Obligations version=\"2\" x:y=\"z\">\n";
    xml += "<Foreign a=\"1\" b=\"&amp;\">text<inner/></Foreign>\n";
    xml += "<!-- between -->\n<Proof_Obligation/>\n";
    for (int g = 0; g < 40; ++g) {
        xml += "<Proof_Obligation><Tag>g\xc3\xa9" + QByteArray::number(g) + "</Tag>";
        for (int p = 0; p < 3; ++p)
            xml += "<Simple_Goal status=\"Unproved\" note=\"caf\xc3\xa9 \xe4\xb8\xad\"><Mechanism "
                   "name=\"m\" status=\"Unproved\"/></Simple_Goal>";
        xml += "</Proof_Obligation>\n";
    }
    return xml + "</Proof_Obligations>\n<!-- after -->\n";
}

// Every shape is saved byte for byte as the whole document serialises, through the user's
// symbolic link; a declaration Qt would write back broken (a quote, an unknown encoding) gives
// way to UTF-8. On a full file system (a small tmpfs, where root may mount one) a save fails,
// is said once, keeps the old file and is retried by the next save. A file gone is not
// created again.
// Stands for standard output, and counts how often it was flushed.
struct FlushCounter : std::streambuf {
    int flushes = 0;
    int sync() override {
        ++flushes;
        return 0;
    }
};

TEST(StatusSaver, WritesTheWholeDocumentsBytesAndRetriesAFailedSave) {
    bool fullDiskTried = false;
    for (const QByteArray encoding : {"", "UTF-8", "ISO-8859-1", "ISO'8859-1", "no-such-codec"}) {
        const bool broken = encoding == "ISO'8859-1" || encoding == "no-such-codec";
        QTemporaryDir dir;
        const QByteArray where = dir.path().toLocal8Bit();
        const bool small = mount("tmpfs", where, "tmpfs", 0, "size=64k") == 0;
        const auto unmount = qScopeGuard([&] { umount(where); });
        // Failures are said without flushing standard output, which may be a pipe nobody
        // reads: the saver's lock, held meanwhile, is one a stop needs.
        FlushCounter output;
        std::streambuf* const stdoutBuffer = std::cout.rdbuf(&output);
        const auto giveBack = qScopeGuard([&] {
            std::cout.rdbuf(stdoutBuffer);
            EXPECT_EQ(output.flushes, 0);
        });
        const QString path = dir.filePath("comp.pos"), target = dir.filePath("real.pos");
        ASSERT_TRUE(QFile::link(target, path));
        const QByteArray before = shapedPos(encoding);
        testutil::writeFile(path, before);
        QDomDocument dom = pos::documentOfFile(path);
        std::mutex statusMutex;
        StatusSaver saver(dom, statusMutex, path);
        saver.prepare();
        EXPECT_TRUE(saver.usesGroupTexts()) << encoding.constData();
        fullDiskTried = small;
        if (small) {
            // More than the file system holds: it is full up to the last byte.
            testutil::writeFile(dir.filePath("filler"), QByteArray(64 * 1024, 'x'));
            testing::internal::CaptureStderr();
            EXPECT_FALSE(saver.saveNow(true) || saver.saveNow(true) || !saver.lastWriteFailed());
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "povrun: cannot save " + path.toStdString() + ": No space left on device\n");
            EXPECT_EQ(testutil::readFile(path), before);
            QFile::remove(dir.filePath("filler"));
            EXPECT_TRUE(saver.saveNow(false) && !saver.lastWriteFailed()) << "retried";
        }
        const QDomNodeList goals = dom.elementsByTagName(pos::TAG_SIMPLE_GOAL);
        for (int round = 0; round < 5; ++round) {
            statusMutex.lock();
            for (int group = round * 3; group < 40; group += 11) { // a few groups, 3 goals each
                // Characters the declared encoding lacks become references.
                goals.at(group * 3 + round % 3)
                    .toElement()
                    .setAttribute("status", round % 2 ? "Proved \xe2\x9c\x93" : "Unknown");
                saver.markChanged(static_cast<std::size_t>(group + 1));
            }
            statusMutex.unlock();
            ASSERT_TRUE(saver.saveNow(false) && testutil::readFile(path) == wholeDocument(dom))
                << encoding.constData() << " round " << round;
        }
        EXPECT_TRUE(
            QFileInfo(path).isSymLink() && !pos::documentOfFile(path).isNull() &&
            testutil::readFile(path).split('\n').first().contains(broken ? "UTF-8" : encoding))
            << encoding.constData();
        QFile::remove(target); // the file vanished: a failure, said once, never created again
        testing::internal::CaptureStderr();
        EXPECT_FALSE(saver.saveNow(true) || QFile::exists(target) || !saver.lastWriteFailed());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  small ? ""
                        : "povrun: cannot save " + path.toStdString() +
                              ": No such file or directory\n");
    }
    if (!fullDiskTried)
        GTEST_SKIP() << "bytes checked, but no small file system could be mounted for the "
                        "failed save (needs root)";
}
