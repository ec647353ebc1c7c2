// The diagnostic dumps of the director and its records, which other tools read as they are.

#include "common/scene.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

template <typename T> std::string dumped(const T& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

} // namespace

// "argsr:" repeats the prover's arguments, not the reader's: kept so for the tools that
// read the dump.
TEST(Dumps, DirectorJobsAndRecordsShowEveryField) {
    scene::Scene s;
    auto director = s.director();
    EXPECT_EQ(dumped(*director), "pos: " + s.path(scene::POS).toStdString() +
                                     "\npog: " + s.path("comp.pog").toStdString() + "\ndir: " +
                                     s.path("tmp").toStdString() + "\nloaded: 1\nmechanism:\n" +
                                     dumped(director->getMechanism()) + "concurrency:1\n");
    const std::vector<ProofDirector::po_address_t> positions{{0, 1}, {2, 3}};
    ProofDirector::writer_data_t writer{"/w", {"-a", "0", "1"}, "/t/f.po2", positions};
    EXPECT_EQ(dumped(writer), "cmd: /w\nargs: -a 0 1\npo2filename: /t/f.po2\n"
                              "positions: {0, 1}{2, 3}\n");
    ProofDirector::prover_data_t prover{"/p", {"-x", "f"}, "/r", {"-y"}, "/t/f.po2", positions};
    EXPECT_EQ(dumped(prover), "cmdp: /p\nargsp: -x f\ncmdr:/r\nargsr:-x f\ninpath:/t/f.po2\n"
                              "po addresses:\t0\t1\t2\t3\n");
    QDomDocument doc;
    ProofDirector::po_data_t po{pos::UNRELIABLY_PROVED, {"d1", "d2"}, doc.createElement("M")};
    po.element.setAttribute("status", "Unproved");
    EXPECT_EQ(dumped(po),
              "{<M status=\"Unproved\"/>\n, " + dumped(pos::UNRELIABLY_PROVED) + ", {d1 d2}}");
    ProofDirector::po_table_t table{{"G", {po, po}}};
    EXPECT_EQ(dumped(table), "G\n" + dumped(po) + "\n" + dumped(po) + "\n");
}
