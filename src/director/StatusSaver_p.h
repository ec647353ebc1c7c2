#pragma once
// Internals of the saver: how a status document becomes bytes.

#include <QByteArray>
#include <QDomDocument>
#include <vector>

class QTextCodec;

namespace statustext {

// Replaces an XML declaration that Qt would write back broken (a quote in a value, an
// encoding no codec knows) by a UTF-8 one.
void ensureWritableDeclaration(QDomDocument& dom);
// The codec the document is written in: its declaration's, else UTF-8, as Qt decides.
QTextCodec* codecOf(const QDomDocument& dom);
// True for codecs whose output for a text is the concatenation of their outputs for its
// parts, so that group texts can be encoded one by one.
bool encodesPiecewise(const QTextCodec* codec);
// Writes every part to `fd`; 0, or the errno of the failed write.
int writeAll(int fd, const std::vector<QByteArray>& parts);
// The whole document's bytes, the way a .pos file has always been written.
QByteArray wholeText(const QDomDocument& dom);
// One node's bytes as the whole document's serialisation writes them.
QByteArray nodeText(const QDomNode& node, QTextCodec* codec);

} // namespace statustext
