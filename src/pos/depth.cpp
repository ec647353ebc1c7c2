// Measuring how deep the elements of an XML text nest, without parsing it: the parser
// itself would overflow the stack on the files this is for.

#include "pos/pos.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace pos {

namespace {

// Where the text `what` (of `length` bytes) ends, searched from `from`; `end` if nowhere.
const char* pastText(const char* from, const char* end, const char* what, std::size_t length) {
    for (const char* at = from; end - at >= static_cast<std::ptrdiff_t>(length); ++at) {
        at = static_cast<const char*>(memchr(at, what[0], static_cast<std::size_t>(end - at)));
        if (at == nullptr || end - at < static_cast<std::ptrdiff_t>(length))
            break;
        if (memcmp(at, what, length) == 0)
            return at + length;
    }
    return end;
}

// Past the '>' that closes a tag or declaration starting at `from`, skipping quoted
// values; `empty` tells whether it was "/>".
const char* pastTag(const char* from, const char* end, bool& empty) {
    for (const char* at = from; at < end; ++at) {
        if (*at == '"' || *at == '\'') {
            const void* quote = memchr(at + 1, *at, static_cast<std::size_t>(end - at - 1));
            if (quote == nullptr)
                return end;
            at = static_cast<const char*>(quote);
        } else if (*at == '>') {
            empty = at > from && at[-1] == '/';
            return at + 1;
        }
    }
    return end;
}

bool startsWith(const char* at, const char* end, const char* text, std::size_t length) {
    return end - at >= static_cast<std::ptrdiff_t>(length) && memcmp(at, text, length) == 0;
}

} // namespace

int elementDepth(const QByteArray& xml) {
    const char* at = xml.constData();
    const char* const end = at + xml.size();
    int depth = 0;
    int deepest = 0;
    bool empty = false;
    while ((at = static_cast<const char*>(memchr(at, '<', static_cast<std::size_t>(end - at)))) !=
           nullptr) {
        ++at;
        if (startsWith(at, end, "!--", 3)) {
            at = pastText(at + 3, end, "-->", 3);
        } else if (startsWith(at, end, "![CDATA[", 8)) {
            at = pastText(at + 8, end, "]]>", 3);
        } else if (startsWith(at, end, "?", 1)) {
            at = pastText(at + 1, end, "?>", 2);
        } else if (startsWith(at, end, "/", 1) || startsWith(at, end, "!", 1)) {
            depth -= *at == '/';
            at = pastTag(at, end, empty);
        } else {
            at = pastTag(at, end, empty);
            if (!empty)
                deepest = std::max(deepest, ++depth);
        }
    }
    return deepest;
}

} // namespace pos
