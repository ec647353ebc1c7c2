#include "director/StatusSaver.h"

#include "pos/pos.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextCodec>
#include <QTextStream>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iostream>
#include <sys/uio.h>

namespace {

const QString AUTHOR = QStringLiteral("proof_director");

// Qt writes the XML declaration back with single quotes around values it keeps as
// read: a value holding a quote, or an encoding no codec knows, would come out as a file
// that does not parse (or cannot be written). Such a declaration gives way to UTF-8.
void ensureWritableDeclaration(QDomDocument& dom) {
    QDomNode first = dom.firstChild();
    if (!first.isProcessingInstruction() || first.nodeName() != QLatin1String("xml"))
        return;
    static const QRegularExpression wellFormed(QStringLiteral(
        "^version='[^'\"]*'(?: encoding='([^'\"]*)')?(?: standalone='(?:yes|no)')?$"));
    const QRegularExpressionMatch match = wellFormed.match(first.nodeValue());
    if (match.hasMatch() &&
        (match.captured(1).isEmpty() || QTextCodec::codecForName(match.captured(1).toLatin1())))
        return;
    dom.replaceChild(
        dom.createProcessingInstruction(QStringLiteral("xml"),
                                        QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")),
        first);
}

// The codec the document is written in: its declaration's, else UTF-8, as Qt decides.
QTextCodec* codecOf(const QDomDocument& dom) {
    const QDomNode first = dom.firstChild();
    if (first.isProcessingInstruction() && first.nodeName() == QLatin1String("xml")) {
        static const QRegularExpression encoding(
            QStringLiteral("encoding\\s*=\\s*((\"([^\"]*)\")|('([^']*)'))"));
        const QRegularExpressionMatch match = encoding.match(first.nodeValue());
        QString name = match.captured(3);
        if (name.isEmpty())
            name = match.captured(5);
        if (QTextCodec* codec =
                name.isEmpty() ? nullptr : QTextCodec::codecForName(name.toLatin1()))
            return codec;
    }
    return QTextCodec::codecForName("UTF-8");
}

// Codecs whose output for a text is the concatenation of their outputs for its parts, so
// that group texts can be encoded one by one.
bool encodesPiecewise(const QTextCodec* codec) {
    const int mib = codec->mibEnum();
    return mib == 106 || mib == 3 || (mib >= 4 && mib <= 12) || (mib >= 109 && mib <= 112) ||
           (mib >= 2250 && mib <= 2258);
}

// Writes every part to `fd`; 0, or the errno of the failed write.
int writeAll(int fd, const std::vector<QByteArray>& parts) {
    std::size_t next = 0;
    qsizetype offset = 0; // into parts[next]
    while (next < parts.size()) {
        std::vector<iovec> chunks;
        for (std::size_t i = next; i < parts.size() && chunks.size() < IOV_MAX; ++i) {
            const qsizetype skip = i == next ? offset : 0;
            chunks.push_back({const_cast<char*>(parts[i].constData() + skip),
                              static_cast<std::size_t>(parts[i].size() - skip)});
        }
        const ssize_t written = ::writev(fd, chunks.data(), static_cast<int>(chunks.size()));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return errno;
        qsizetype left = written;
        while (next < parts.size() && left >= parts[next].size() - offset) {
            left -= parts[next].size() - offset;
            offset = 0;
            ++next;
        }
        offset += left;
    }
    return 0;
}

QByteArray wholeText(const QDomDocument& dom) {
    QByteArray bytes;
    QTextStream stream(&bytes, QIODevice::WriteOnly);
    // The declaration's encoding wins over this default when the document has one.
    stream.setCodec("UTF-8");
    dom.save(stream, pos::XML_INDENT, QDomNode::EncodingFromDocument);
    stream.flush();
    return bytes;
}

// One child of the root as the whole document's serialisation writes it: the codec
// decides which characters become references.
QByteArray nodeText(const QDomNode& node, QTextCodec* codec) {
    QString text;
    QTextStream stream(&text, QIODevice::WriteOnly);
    stream.setCodec(codec);
    node.save(stream, pos::XML_INDENT);
    stream.flush();
    QByteArray bytes = codec->fromUnicode(text);
    // The codec reserves room for the worst case, three times the text: kept for every
    // group of a large file, that room would cost more than the document itself.
    bytes.squeeze();
    return bytes;
}

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
    // A missing file is never created, and a document without a root never written.
    if (!info.exists() || snapshot.empty)
        return false;
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
    std::cerr << "povrun: cannot save " << path.toStdString() << ": " << reason.toStdString()
              << std::endl;
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
    constexpr milliseconds shortest{20};
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
