#include "director/StatusSaver.h"

#include "director/JobObserver.h"
#include "director/StatusSaver_p.h"
#include "pos/pos.h"

#include <QFileInfo>
#include <QSaveFile>
#include <QTextCodec>
#include <algorithm>
#include <cerrno>
#include <cstring>

using statustext::codecOf;
using statustext::encodesPiecewise;
using statustext::ensureWritableDeclaration;
using statustext::nodeText;
using statustext::wholeText;
using statustext::writeAll;

namespace {

const QString AUTHOR = QStringLiteral("proof_director");

} // namespace

StatusSaver::StatusSaver(QDomDocument& document, std::mutex& statusMutex, const QString& path)
    : document(document), statusMutex(statusMutex), path(path) {}

StatusSaver::~StatusSaver() {
    saveNow(false);
    {
        std::lock_guard<std::mutex> lock(wakeMutex);
        quit = true;
    }
    wake.notify_all();
    if (background.joinable())
        background.join();
}

void StatusSaver::reset() {
    prepared = false;
    unsaved = false;
    groupTexts = false;
    prefix.clear();
    suffix.clear();
    pieces.clear();
    pieceNodes.clear();
    pieceOfGroup.clear();
    changed.clear();
    changedPieces.clear();
}

void StatusSaver::prepare() {
    std::lock_guard<std::mutex> lock(statusMutex);
    if (!prepared)
        prepareLocked();
}

void StatusSaver::prepareLocked() {
    reset();
    prepared = true;
    QDomElement root = document.documentElement();
    if (root.isNull())
        return;
    root.setAttribute(pos::ATTR_AUTHOR, AUTHOR);
    ensureWritableDeclaration(document);
    codec = codecOf(document);
    if (!encodesPiecewise(codec))
        return;
    for (QDomNode child = root.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (child.isElement() && child.nodeName() == pos::TAG_PROOF_OBLIGATION)
            pieceOfGroup.push_back(pieces.size());
        pieces.push_back(nodeText(child, codec));
        pieceNodes.push_back(child);
    }
    changed.assign(pieces.size(), false);
    // The root's own tags and whatever surrounds them are cut from one whole
    // serialisation, so they come out exactly as Qt writes them.
    const QByteArray whole = wholeText(document);
    const int start = startOfPieces(whole);
    if (start < 0)
        return;
    qsizetype end = start;
    for (const QByteArray& piece : pieces)
        end += piece.size();
    prefix = whole.left(start);
    suffix = whole.mid(end);
    groupTexts = true;
}

int StatusSaver::startOfPieces(const QByteArray& whole) const {
    if (pieces.empty())
        return -1;
    for (int start = whole.indexOf(pieces.front()); start >= 0;
         start = whole.indexOf(pieces.front(), start + 1)) {
        qsizetype at = start;
        bool match = true;
        for (std::size_t i = 0; match && i < pieces.size(); at += pieces[i++].size())
            match = std::memcmp(whole.constData() + at, pieces[i].constData(),
                                static_cast<std::size_t>(std::min<qsizetype>(
                                    pieces[i].size(), whole.size() - at))) == 0 &&
                    whole.size() - at >= pieces[i].size();
        if (match && whole.mid(at).startsWith("</"))
            return start;
    }
    return -1;
}

void StatusSaver::markChanged(std::size_t group) {
    unsaved = true;
    if (!groupTexts || group >= pieceOfGroup.size())
        return;
    const std::size_t piece = pieceOfGroup[group];
    if (!changed[piece]) {
        changed[piece] = true;
        changedPieces.push_back(piece);
    }
}

void StatusSaver::requestSave() {
    unsaved = true;
    startBackground();
    {
        std::lock_guard<std::mutex> lock(wakeMutex);
        wanted = true;
    }
    wake.notify_one();
}

void StatusSaver::refreshChangedLocked() {
    if (changedPieces.empty())
        return;
    for (std::size_t piece : changedPieces) {
        pieces[piece] = nodeText(pieceNodes[piece], codec);
        changed[piece] = false;
    }
    changedPieces.clear();
}

StatusSaver::snapshot_t StatusSaver::snapshotLocked() {
    if (!prepared)
        prepareLocked();
    snapshot_t snapshot;
    snapshot.empty = document.documentElement().isNull();
    if (snapshot.empty)
        return snapshot;
    if (!groupTexts) {
        snapshot.parts.push_back(wholeText(document));
        return snapshot;
    }
    refreshChangedLocked();
    snapshot.parts.reserve(pieces.size() + 2);
    snapshot.parts.push_back(prefix);
    snapshot.parts.insert(snapshot.parts.end(), pieces.begin(), pieces.end());
    snapshot.parts.push_back(suffix);
    return snapshot;
}

bool StatusSaver::saveNow(bool force) {
    std::lock_guard<std::mutex> writing(writeMutex);
    snapshot_t snapshot;
    {
        std::lock_guard<std::mutex> lock(statusMutex);
        if (!unsaved && !force)
            return !failedLast;
        snapshot = snapshotLocked();
        unsaved = false;
    }
    if (write(snapshot))
        return true;
    std::lock_guard<std::mutex> lock(statusMutex);
    unsaved = true; // the next save tries again
    return false;
}

void StatusSaver::holdForExit() {
    writeMutex.lock();
    statusMutex.lock();
}

bool StatusSaver::saveHeld() {
    // Nothing new since the last good write: the file stays as it is, byte for byte.
    if (!unsaved && !failedLast)
        return true;
    return write(snapshotLocked());
}

bool StatusSaver::lastWriteFailed() const {
    return failedLast;
}

bool StatusSaver::usesGroupTexts() const {
    return groupTexts;
}

bool StatusSaver::write(const snapshot_t& snapshot) {
    const QFileInfo info(path);
    // A document without a root is never written, and a missing file never created.
    if (snapshot.empty)
        return false;
    // The document was read from the file, so it vanished since: the verdicts are lost.
    if (!info.exists()) {
        reportFailure(QString::fromLocal8Bit(strerror(ENOENT)));
        return false;
    }
    // Respect a file the user made read-only, even when running as root, who could
    // write it anyway.
    if (!(info.permissions() & QFileDevice::WriteOwner)) {
        reportFailure(QString::fromLocal8Bit(strerror(EACCES)));
        return false;
    }
    qsizetype size = 0;
    for (const QByteArray& part : snapshot.parts)
        size += part.size();
    lastSize = size;
    // Written beside the old file and renamed over it, so a kill or a full disk in the
    // middle of a save leaves the previous file whole.
    QSaveFile file(info.isSymLink() ? info.symLinkTarget() : path);
    file.setDirectWriteFallback(true);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        reportFailure(file.errorString());
        return false;
    }
    // The kept texts go out as they are, in as few calls as the system allows, instead of
    // being copied into one buffer the size of the file.
    const int failure = writeAll(file.handle(), snapshot.parts);
    if (failure != 0) {
        file.cancelWriting();
        reportFailure(QString::fromLocal8Bit(strerror(failure)));
        return false;
    }
    if (!file.commit()) {
        reportFailure(file.errorString());
        return false;
    }
    failedLast = false;
    return true;
}

void StatusSaver::reportFailure(const QString& reason) {
    failedLast = true;
    if (failureReported)
        return;
    failureReported = true;
    director::sayPastStdout("povrun: cannot save " + path.toStdString() + ": " +
                            reason.toStdString());
}

void StatusSaver::startBackground() {
    if (!background.joinable())
        background = std::thread([this] { backgroundLoop(); });
}

// Saves whenever asked, but leaves a pause after each save in proportion to its cost, so
// that writing a large file never takes much of the machine: the kernel's share of a save
// (writing back and syncing the file) comes after it returns, hence the size counts too.
// A verdict still reaches the file within about a second.
void StatusSaver::backgroundLoop() {
    using clock = std::chrono::steady_clock;
    using std::chrono::milliseconds;
    constexpr milliseconds shortest{250};
    constexpr milliseconds longest{900};
    constexpr qint64 bytesPerMillisecond = 10 * 1024; // 10 MB of file, one second of pause
    std::unique_lock<std::mutex> lock(wakeMutex);
    for (;;) {
        wake.wait(lock, [this] { return wanted || quit; });
        if (quit)
            return;
        wanted = false;
        lock.unlock();
        const clock::time_point began = clock::now();
        saveNow(false);
        const auto took = std::chrono::duration_cast<milliseconds>(clock::now() - began);
        const milliseconds bySize{lastSize / bytesPerMillisecond};
        const milliseconds pause = std::clamp(std::max(8 * took, bySize), shortest, longest);
        lock.lock();
        wake.wait_for(lock, pause, [this] { return quit; });
        if (quit)
            return;
    }
}
