// The result cache alone: what its key holds, and what a damaged entry is worth.

#include "common/testutil.h"
#include "director/ResultCache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

using director::ResultCache;

namespace {

struct job_t {
    mechanism::driver_t driver;
    QStringList proverArgs, readerArgs;
    QString file;
};

} // namespace

// Each part that can change the answers makes a new key; the secondary file's place does
// not, so the same goal asked from another component or temporary folder hits. Program
// files are hashed once per run: a changed tool is seen by the next run's cache.
TEST(ResultCache, KeyChangesWithEachPartThatDecidesTheAnswers) {
    QTemporaryDir dir;
    const auto at = [&](const QString& name) { return dir.filePath(name); };
    QDir(dir.path()).mkdir("tmp");
    for (const char* file : {"prover", "reader", "other", "tmp/comp_m_d_0_0.po2", "q.po2"})
        testutil::writeFile(at(file), "0 0\n");
    job_t base;
    base.driver.prover.path = at("prover").toStdString();
    base.driver.reader.path = at("reader").toStdString();
    base.file = at("tmp/comp_m_d_0_0.po2");
    base.proverArgs = QStringList{"-T:2", "--in=" + base.file + ".smt"};
    const auto keyOf = [&](const job_t& job) {
        ResultCache cache(at("cache"));
        return ResultCache::jobKey(cache.driverKey(job.driver), job.proverArgs, job.readerArgs,
                                   job.file);
    };
    const QByteArray baseKey = keyOf(base);
    ASSERT_EQ(baseKey.size(), 64);
    const std::pair<const char*, std::function<void(job_t&)>> rows[] = {
        {"question", [&](job_t&) { testutil::writeFile(base.file, "0 1\n"); }},
        {"timeout", [](job_t& j) { j.proverArgs[0] = "-T:5"; }},
        {"prover path", [&](job_t& j) { j.driver.prover.path = at("other").toStdString(); }},
        {"prover program", [&](job_t&) { testutil::writeFile(at("prover"), "v2"); }},
        {"reader program", [&](job_t&) { testutil::writeFile(at("reader"), "v2"); }},
        {"reader argument", [](job_t& j) { j.readerArgs << "-v"; }},
        {"input mode", [](job_t& j) { j.driver.prover.input = mechanism::INPUT_FILE; }},
        {"extension", [](job_t& j) { j.driver.ext = "smt2"; }},
    };
    for (const auto& [name, change] : rows) {
        for (const char* file : {"prover", "reader", "tmp/comp_m_d_0_0.po2"})
            testutil::writeFile(at(file), "0 0\n");
        job_t job = base;
        change(job);
        EXPECT_NE(keyOf(job), baseKey) << name;
    }
    job_t moved = base;
    moved.file = at("q.po2");
    moved.proverArgs[1] = "--in=" + moved.file + ".smt";
    EXPECT_EQ(keyOf(moved), baseKey) << "another component and folder";
    moved.file = at("missing.po2");
    EXPECT_EQ(keyOf(moved), QByteArray()) << "no file, no key";
}

// An entry cut short at any length, changed in one byte, of another version or filed
// under another key is a miss, never an answer; the next store replaces it.
TEST(ResultCache, DamagedEntriesAreMissesAndAreReplaced) {
    QTemporaryDir dir;
    ResultCache cache(dir.filePath("cache"));
    const QByteArray key(64, 'a'), output = "Proved\nUnknown\n";
    QByteArray found;
    ASSERT_TRUE(cache.store(key, output) && cache.find(key, found) && found == output);
    const QByteArray whole = testutil::readFile(cache.entryPath(key));
    QByteArray otherVersion = "povrun result cache 2\n" + key + "\n15\n" + output + "\n";
    otherVersion += QCryptographicHash::hash(otherVersion, QCryptographicHash::Sha256).toHex();
    otherVersion += "\n";
    QByteArray flipped = whole;
    flipped[whole.indexOf("Unknown")] = 'u';
    std::vector<QByteArray> damaged = {otherVersion, flipped, "garbage",
                                       director::cacheEntryBytes(QByteArray(64, 'b'), output)};
    for (int length = 0; length < whole.size(); ++length)
        damaged.push_back(whole.left(length));
    for (const QByteArray& bytes : damaged) {
        testutil::writeFile(cache.entryPath(key), bytes);
        EXPECT_FALSE(cache.find(key, found)) << bytes.toStdString();
    }
    EXPECT_TRUE(cache.store(key, "Disproved") && cache.find(key, found) && found == "Disproved");
    EXPECT_EQ(QDir(dir.filePath("cache/aa")).entryList(QDir::Files | QDir::Hidden).size(), 1)
        << "no temporary file left beside the entry";
}
