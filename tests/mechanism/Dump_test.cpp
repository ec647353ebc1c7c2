// The textual dump of a mechanism, byte for byte.

#include "mechanism/Mechanism.h"

#include "common/testutil.h"

#include <gtest/gtest.h>
#include <sstream>

using namespace mechanism;

// Kept on purpose, as other tools read it: the prover's "input" line has only a closing quote,
// and its parameter blocks follow the "size" line with no empty line between; ext, fast and
// names are left out.
TEST(Dump, MechanismWithTwoDriversIsWrittenByteForByte) {
    driver_t first;
    first.writer = {"W", "w", "/tools/w", "ZDR*Proof*w", {}};
    first.prover = {{"P\xc3\xa9", "p", "/p.exe", "", {{"-t", "", "say \"hi\""}}}, 30, INPUT_FILE};
    first.name = "d1";
    const mechanism_t m = {"x", "mech", TRUST_REDUNDANCY, {first, driver_t()}, {"d1", "d2"}};
    std::ostringstream os;
    os << m;
    EXPECT_EQ(os.str(), testutil::readFile(POVRUN_SOURCE_DIR "/tests/mechanism/two_driver_dump.expected")
                            .toStdString());
}
