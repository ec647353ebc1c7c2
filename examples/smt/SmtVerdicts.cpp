#include "SmtVerdicts.h"

#include <map>

namespace smt {

const QString VERDICT_PROVED = QStringLiteral("Proved");
const QString VERDICT_DISPROVED = QStringLiteral("Disproved");
const QString VERDICT_UNKNOWN = QStringLiteral("Unknown");

namespace {

struct BlockAnswer {
    QString answer; // empty until an answer line is seen
    bool spoiled = false;
    QStringList after;
};

bool isAnswer(const QString& line) {
    return line == QLatin1String("unsat") || line == QLatin1String("sat") ||
           line == QLatin1String("unknown") || line == QLatin1String("timeout");
}

QString rightTrimmed(const QString& text) {
    int end = text.size();
    while (end > 0 && text.at(end - 1).isSpace())
        --end;
    return text.left(end);
}

// line is rawLine trimmed; a model keeps its indentation.
void takeLine(BlockAnswer& block, const QString& line, const QString& rawLine) {
    if (!block.answer.isEmpty()) {
        if (!line.isEmpty())
            block.after << rightTrimmed(rawLine);
    } else if (line.startsWith(QLatin1String("(error"))) {
        block.spoiled = true;
    } else if (isAnswer(line)) {
        block.answer = line;
    }
}

Verdict verdictOf(const BlockAnswer* block) {
    if (block == nullptr || block->spoiled)
        return {VERDICT_UNKNOWN, {}};
    if (block->answer == QLatin1String("unsat"))
        return {VERDICT_PROVED, {}};
    if (block->answer == QLatin1String("sat"))
        return {VERDICT_DISPROVED, block->after};
    return {VERDICT_UNKNOWN, {}};
}

} // namespace

std::vector<Verdict> verdictsOfOutput(const ScriptOutline& outline, const QString& output) {
    std::map<int, BlockAnswer> answers;
    BlockAnswer* current = nullptr;
    for (const QString& rawLine : output.split(QLatin1Char('\n'))) {
        const QString line = rawLine.trimmed();
        const int block = blockOfOutputLine(line);
        if (block >= 0) {
            current = &answers[block];
            continue;
        }
        if (current != nullptr)
            takeLine(*current, line, rawLine);
    }
    std::vector<Verdict> verdicts;
    for (int block : outline.blocks) {
        const auto found = answers.find(block);
        verdicts.push_back(verdictOf(found == answers.end() ? nullptr : &found->second));
    }
    return verdicts;
}

} // namespace smt
