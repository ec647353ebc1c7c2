#pragma once
// Keeps the .pos file in step with the document in memory without making workers wait
// for it. Workers change the document under the status mutex and mark the groups they
// changed; one background thread writes the newest state within about a second, and the
// director saves synchronously at the end of each driver, of each mechanism and in
// stop(). The text of each group ("Proof_Obligation") is kept and only changed groups are
// serialised again, so a save costs the status mutex little whatever the file's size; the
// bytes are those the whole document would serialise to.
//
// Every write is atomic (a temporary file beside the .pos, synced, renamed over it), never
// creates a missing file and never writes a document without a root. A write that fails,
// or finds the file gone, is said once on standard error, with the file and the system's
// reason, and retried by the next save.
//
// Locks, always taken in this order: writeMutex (one write at a time, held while the file
// is written) -> the director's statusMutex (held to refresh the changed groups and copy
// the texts) -> wakeMutex (the background thread's request flag).

#include <QByteArray>
#include <QDomDocument>
#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

class QTextCodec;

class StatusSaver {
public:
    StatusSaver(QDomDocument& document, std::mutex& statusMutex, const QString& path);
    // Writes what is still unsaved, then ends the background thread.
    ~StatusSaver();
    StatusSaver(const StatusSaver&) = delete;
    StatusSaver& operator=(const StatusSaver&) = delete;

    // The document was replaced: forget every kept text. Caller holds statusMutex.
    void reset();
    // Readies the document for writing (author, a declaration Qt can write back) and
    // serialises it once. Takes statusMutex; call it before workers start.
    void prepare();
    // The `group`-th "Proof_Obligation" of the root changed. Caller holds statusMutex.
    void markChanged(std::size_t group);
    // The newest state is to reach the file soon, even when no group changed. Caller holds
    // statusMutex.
    void requestSave();
    // Writes the newest state now when something is unsaved (always when `force`); true
    // when the file holds it. Takes writeMutex and statusMutex.
    bool saveNow(bool force);
    // For stop(): takes writeMutex and statusMutex and keeps them for ever, so that
    // nothing changes the document or the file before the process exits.
    void holdForExit();
    // stop()'s save, after holdForExit(): writes the newest state now, unless the file
    // already holds it.
    bool saveHeld();
    // True when the last write failed (the file holds an older state).
    bool lastWriteFailed() const;
    // True when the kept group texts are used (false: every save serialises everything).
    bool usesGroupTexts() const;

private:
    struct snapshot_t {
        std::vector<QByteArray> parts;
        bool empty = true; // nothing to write: no root
    };
    void prepareLocked();
    // Where the kept pieces begin in the whole document's bytes; -1 when they are not
    // found there one after the other, followed by the root's end tag.
    int startOfPieces(const QByteArray& whole) const;
    void refreshChangedLocked();
    snapshot_t snapshotLocked();
    bool write(const snapshot_t& snapshot);
    void reportFailure(const QString& reason);
    void backgroundLoop();
    void startBackground();

    QDomDocument& document;
    std::mutex& statusMutex;
    const QString path;

    // Guarded by statusMutex.
    bool prepared = false;
    bool unsaved = false;
    QTextCodec* codec = nullptr;
    QByteArray prefix;                     // everything before the root's first child
    QByteArray suffix;                     // everything after its last child
    std::vector<QByteArray> pieces;        // one per child node of the root
    std::vector<QDomNode> pieceNodes;      // the nodes of the pieces
    std::vector<std::size_t> pieceOfGroup; // "Proof_Obligation" number -> piece
    std::vector<bool> changed;             // per piece
    std::vector<std::size_t> changedPieces;
    bool groupTexts = false;

    // Held while a snapshot is written, so that writes never overtake each other.
    std::mutex writeMutex;
    bool failureReported = false;        // guarded by writeMutex
    std::atomic<bool> failedLast{false}; // written under writeMutex
    std::atomic<qint64> lastSize{0};     // bytes of the last write, written under writeMutex

    // Guards wanted and quit, the background thread's orders; held only to set or test.
    std::mutex wakeMutex;
    std::condition_variable wake;
    bool wanted = false;
    bool quit = false;
    std::thread background;
};
