#pragma once
// Synthetic .pos files for the benchmarks: groups of goals, each with a proof state, an
// optional assistant verdict and one or two mechanisms holding a few drivers, statuses
// mixed. Every goal's own status is the one its children give, so the files pass the
// status file's consistency check and a director can replay them.

#include <QDomDocument>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <limits>

namespace posgen {

struct options_t {
    unsigned groups = 100;
    unsigned goalsPerGroup = 20;
    uint32_t seed = 1;
    // Each goal names one or two of these (never the same twice); none when empty.
    QStringList mechanisms = {QStringLiteral("mech")};
    // Each "Mechanism" holds the first one to three of these, in this order; none when
    // empty.
    QStringList drivers = {QStringLiteral("d1"), QStringLiteral("d2"), QStringLiteral("d3")};
};

// The same options (seed included) always give the same document.
QDomDocument generate(const options_t& options);
// Writes generate(options) to `path` as the director writes a .pos file; false when the
// file cannot be written.
bool writeFile(const QString& path, const options_t& options);

// A file for a replay of one mechanism: every goal is "Unproved", with no proof state or
// assistant verdict that could prove it, and carries the mechanism's element, "Unproved"
// too, holding the one driver. The first `replayableGoals` goals in file order (all of
// them when the file has fewer) record the driver as "Proved", so a replay plays it on
// exactly those goals; the others record it as "Unknown" and are left alone.
struct replay_options_t {
    unsigned groups = 10;
    unsigned goalsPerGroup = 20;
    QString mechanism = QStringLiteral("mech");
    QString driver = QStringLiteral("d1");
    unsigned replayableGoals = std::numeric_limits<unsigned>::max();
};

QDomDocument generateReplayable(const replay_options_t& options);
// Writes generateReplayable(options) to `path`; false when the file cannot be written.
bool writeReplayableFile(const QString& path, const replay_options_t& options);

} // namespace posgen
