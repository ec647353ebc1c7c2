#include "director/JobObserver.h"

#include <cstring>

namespace director {

QString nameOfSignal(int signal) {
    const char* abbreviation = sigabbrev_np(signal);
    return abbreviation == nullptr ? QStringLiteral("signal %1").arg(signal)
                                   : QStringLiteral("SIG") + QString::fromLatin1(abbreviation);
}

QString endOfTool(const tool_end_t& tool) {
    if (!tool.started)
        return tool.failure;
    if (tool.crashed)
        return QStringLiteral("ended by signal ") + nameOfSignal(tool.signal);
    return QStringLiteral("ended with exit code %1").arg(tool.code);
}

} // namespace director
