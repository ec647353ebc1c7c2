#pragma once
// A folder of reader answers, shared by runs, processes and machines, so that a job
// already answered is never proved again.
//
// The key of a job is a SHA-256 over everything that can change the reader's answers:
//   - a format version, so that entries of another layout are never read as answers;
//   - the prover's and the reader's resolved paths, and a SHA-256 of each program file's
//     bytes. Size and modification time would be cheaper, but a tool rebuilt or copied
//     within the same second keeps both, and a checkout sets every time stamp anew; the
//     content hash is taken once per run per tool, which costs a few milliseconds even
//     for a solver of tens of megabytes;
//   - the prover's and the reader's arguments as built (so a new time limit is a new
//     key), with the secondary file's path replaced by "${file}", so that the same goal
//     in another component or another temporary folder finds the same entry;
//   - the prover's input mode and the secondary file's extension;
//   - the bytes of the secondary file: the writer always runs, its file is the question.
// The writer itself is not in the key: whatever it is, the file it wrote is.
//
// Entries live in <folder>/<first two hex digits>/<other 62>; each is written whole to a
// temporary file beside it and renamed into place, so that processes sharing the folder
// (even over a network file system) see an old entry, a new one or none. An entry holds
// the version line, its key, the length of the stored output, the output and a SHA-256 of
// all that: one that is cut short, changed or of another version is a miss, and the job
// that runs then replaces it.
//
// Stores go behind the jobs: storeBehind() queues an entry for one writer thread, so that
// a job never waits for a file to be made (on a journalling file system, a status file's
// fsync can make each new entry wait for the disk). flush() waits for the queue; entries
// still queued when a signal ends the process are lost, and their jobs simply run again.
//
// Thread safety: find(), store() and storeBehind() may be called from any number of
// threads at once; driverKey() and flush() are for the main thread, between drivers.

#include "mechanism/Mechanism.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace director {

// What one mechanism's jobs did with the cache.
struct cache_counts_t {
    uint64_t answered = 0; // answered from the cache: no prover nor reader ran
    uint64_t run = 0;      // prover and reader ran
    uint64_t stored = 0;   // answers of a run job written to the cache
};

class ResultCache {
public:
    // Uses `folder`, creating it and its parents when missing. When it cannot be created,
    // says so once on standard error; the cache then answers nothing and stores nothing.
    explicit ResultCache(const QString& folder);
    ~ResultCache(); // writes what is queued
    ResultCache(const ResultCache&) = delete;
    ResultCache& operator=(const ResultCache&) = delete;

    const QString& folder() const { return root; }

    // The part of every job key that depends on the driver alone (tools, their program
    // files, input mode, extension). Hashes each program file the first time it is named.
    QByteArray driverKey(const mechanism::driver_t& driver);

    // The key of one job, as 64 hex digits; empty when the secondary file cannot be read
    // (such a job is neither looked up nor stored).
    static QByteArray jobKey(const QByteArray& driverKey, const QStringList& proverArgs,
                             const QStringList& readerArgs, const QString& secondaryFile);

    // Where the entry of `key` lives.
    QString entryPath(const QByteArray& key) const;

    // The reader output stored under `key`; false for a miss: no entry, or one that is
    // unreadable, cut short, corrupt or of another version.
    bool find(const QByteArray& key, QByteArray& output) const;

    // Stores `output` under `key`, whole or not at all. False when nothing was stored; a
    // folder that cannot be written is said once on standard error, and nothing is stored
    // afterwards.
    bool store(const QByteArray& key, const QByteArray& output);
    // Queues `output` to be stored under `key` by the writer thread.
    void storeBehind(const QByteArray& key, const QByteArray& output);
    // Waits until every queued entry is written; returns how many entries were stored
    // since the cache was made.
    uint64_t flush();

private:
    void writeQueued();
    QByteArray identityOf(const std::string& program);
    bool writeEntry(const std::string& shard, const std::string& path, const QByteArray& bytes);
    void refuseStoring(int error); // errno of the failed call

    QString root;
    std::string rootPath; // root, encoded for the system calls
    std::atomic<bool> usable{true};
    std::atomic<bool> storing{true};
    std::atomic<bool> refusalSaid{false};
    std::atomic<uint64_t> temporaryCount{0};
    // Guards identities; held while one program file is hashed (main thread only in a run).
    std::mutex identityMutex;
    std::map<std::string, QByteArray> identities;
    // Guards queue, writing and quitting; held only to take or add an entry.
    std::mutex queueMutex;
    std::condition_variable queueChanged;
    std::deque<std::pair<QByteArray, QByteArray>> queue; // (key, output)
    bool writing = false; // the writer holds an entry taken from the queue
    bool quitting = false;
    std::atomic<uint64_t> storedCount{0};
    std::thread writer; // started by the first storeBehind()
};

// The entry layout, for tests of what a damaged entry does.
QByteArray cacheEntryBytes(const QByteArray& key, const QByteArray& output);

} // namespace director
