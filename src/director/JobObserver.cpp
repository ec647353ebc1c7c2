#include "director/JobObserver.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace director {

QString nameOfSignal(int signal) {
    const char* abbreviation = sigabbrev_np(signal);
    return abbreviation == nullptr ? QStringLiteral("signal %1").arg(signal)
                                   : QStringLiteral("SIG") + QString::fromLatin1(abbreviation);
}

void sayPastStdout(const std::string& line) {
    const std::string text = line + '\n';
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return;
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

QString endOfTool(const tool_end_t& tool) {
    if (!tool.started)
        return tool.failure;
    if (tool.crashed)
        return QStringLiteral("ended by signal ") + nameOfSignal(tool.signal);
    return QStringLiteral("ended with exit code %1").arg(tool.code);
}

} // namespace director
