// gen_pos: writes a synthetic .pos file for benchmarks and manual runs.
//   gen_pos OUTPUT GROUPS GOALS_PER_GROUP SEED [--mechanisms=a,b] [--drivers=d1,d2,d3]
//           [--replay=K]
// --replay=K writes a file for a replay instead: the first K goals replayable by the
// first driver of the first mechanism (the seed is then unused).

#include "posgen.h"

#include <QHash>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

[[noreturn]] void usage() {
    std::fprintf(stderr, "usage: gen_pos OUTPUT GROUPS GOALS_PER_GROUP SEED "
                         "[--mechanisms=NAME,...] [--drivers=NAME,...] [--replay=K]\n");
    std::exit(2);
}

unsigned long number(const char* text) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value > 0xffffffffUL)
        usage();
    return value;
}

// The comma-separated names after `prefix` in `arg`, or false when `arg` is another option.
bool namesOf(const char* arg, const char* prefix, QStringList& names) {
    if (std::strncmp(arg, prefix, std::strlen(prefix)) != 0)
        return false;
    names = QString::fromUtf8(arg + std::strlen(prefix)).split(',', Qt::SkipEmptyParts);
    return true;
}

// The number after `prefix` in `arg`, or false when `arg` is another option.
bool numberOf(const char* arg, const char* prefix, unsigned long& value) {
    if (std::strncmp(arg, prefix, std::strlen(prefix)) != 0)
        return false;
    value = number(arg + std::strlen(prefix));
    return true;
}

bool writeReplayable(const char* path, const posgen::options_t& options, unsigned long goals) {
    if (options.mechanisms.isEmpty() || options.drivers.isEmpty())
        usage();
    posgen::replay_options_t replay;
    replay.groups = options.groups;
    replay.goalsPerGroup = options.goalsPerGroup;
    replay.mechanism = options.mechanisms.first();
    replay.driver = options.drivers.first();
    replay.replayableGoals = static_cast<unsigned>(goals);
    return posgen::writeReplayableFile(QString::fromLocal8Bit(path), replay);
}

} // namespace

int main(int argc, char** argv) {
    qSetGlobalQHashSeed(0); // same attribute order for the same seed
    if (argc < 5)
        usage();
    posgen::options_t options;
    options.groups = static_cast<unsigned>(number(argv[2]));
    options.goalsPerGroup = static_cast<unsigned>(number(argv[3]));
    options.seed = static_cast<uint32_t>(number(argv[4]));
    bool replay = false;
    unsigned long replayableGoals = 0;
    for (int i = 5; i < argc; ++i) {
        if (numberOf(argv[i], "--replay=", replayableGoals)) {
            replay = true;
            continue;
        }
        if (!namesOf(argv[i], "--mechanisms=", options.mechanisms) &&
            !namesOf(argv[i], "--drivers=", options.drivers))
            usage();
    }
    const bool written = replay ? writeReplayable(argv[1], options, replayableGoals)
                                : posgen::writeFile(QString::fromLocal8Bit(argv[1]), options);
    if (!written) {
        std::fprintf(stderr, "gen_pos: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
