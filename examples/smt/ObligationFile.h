#pragma once
// The example's proof obligation file: groups of SMT-LIB 2 obligations, laid out in the same
// order as the groups ("Proof_Obligation") and goals ("Simple_Goal") of the component's .pos,
// so that an address (group, obligation) counted from 0 names the same goal in both files.
//
//   <obligations component="tank">
//     <group name="fill">
//       <declare>(declare-const level Int)</declare>      shared by the group's obligations
//       <obligation name="level_not_negative">
//         <declare>...</declare>                          zero or more, the obligation's own
//         <hypothesis>(> level 0)</hypothesis>            zero or more
//         <goal>(>= level 0)</goal>                       exactly one
//       </obligation>
//     </group>
//   </obligations>

#include <QString>
#include <QStringList>
#include <cstddef>
#include <set>
#include <vector>

namespace smt {

struct Obligation {
    QString name;
    QStringList declarations;
    QStringList hypotheses;
    QString goal;
};

struct Group {
    QString name;
    QStringList declarations;
    std::vector<Obligation> obligations;
};

struct ObligationFile {
    QString component;
    std::vector<Group> groups;
};

// Reads the file at path into file. On failure returns false, leaves file in an unspecified
// state and sets error to one line "path:line: what went wrong" (no line for an unreadable
// file). Element texts are kept as written, trimmed of surrounding white space.
// With `wanted`, the groups it does not name are left empty, unchecked, and reading stops
// after the last one it names: a writer asked for a few goals of a large file reads only
// as far as they are.
bool readObligationFile(const QString& path, ObligationFile& file, QString& error,
                        const std::set<std::size_t>* wanted = nullptr);

} // namespace smt
