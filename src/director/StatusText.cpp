// The bytes of a status file: the declaration Qt can write back, the codec, the text of
// the whole document or of one node, and writing kept texts out.

#include "director/StatusSaver_p.h"

#include "pos/pos.h"

#include <QRegularExpression>
#include <QTextCodec>
#include <QTextStream>
#include <cerrno>
#include <climits>
#include <sys/uio.h>
#include <unistd.h>

namespace statustext {

// Qt writes the XML declaration back with single quotes around values it keeps as
// read: a value holding a quote, or an encoding no codec knows, would come out as a file
// that does not parse (or cannot be written). Such a declaration gives way to UTF-8. So
// does a first instruction whose name only starts with "xml": the file is written in UTF-8,
// but the parser takes the encoding from it, and the file may not read back.
void ensureWritableDeclaration(QDomDocument& dom) {
    QDomNode first = dom.firstChild();
    if (!first.isProcessingInstruction() || !first.nodeName().startsWith(QLatin1String("xml")))
        return;
    static const QRegularExpression wellFormed(QStringLiteral(
        "^version='[^'\"]*'(?: encoding='([^'\"]*)')?(?: standalone='(?:yes|no)')?$"));
    const QRegularExpressionMatch match = wellFormed.match(first.nodeValue());
    if (first.nodeName() == QLatin1String("xml") && match.hasMatch() &&
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

} // namespace statustext
