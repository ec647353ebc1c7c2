// The textual dump of a mechanism, byte for byte.

#include "mechanism/Mechanism.h"

#include <gtest/gtest.h>
#include <sstream>

using namespace mechanism;

// Kept on purpose: the prover's "input" line has only a closing quote, and its parameter
// blocks follow the "size" line with no empty line between; ext, fast and names are left out.
const char TWO_DRIVER_DUMP[] = R"([mechanism]
name = "mech"
trust = "redundancy"

[driver]
name = "d1"
group = "none"

[writer]

[tool]
name = "W"
default_path = "w"
resource = "ZDR*Proof*w"
path = "/tools/w"

[parameters]
size = 0

[prover]
name = "Pé"
default_path = "p"
resource = ""
path = "/p.exe"
timeout = "30"
input = file"

[parameters]
size = 1
[parameter]
name = "-t"
separator = ""
value = "say "hi""

[reader]

[tool]
name = ""
default_path = ""
resource = ""
path = ""

[parameters]
size = 0

[driver]
name = ""
group = "none"

[writer]

[tool]
name = ""
default_path = ""
resource = ""
path = ""

[parameters]
size = 0

[prover]
name = ""
default_path = ""
resource = ""
path = ""
timeout = "-1"
input = stdin"

[parameters]
size = 0
[reader]

[tool]
name = ""
default_path = ""
resource = ""
path = ""

[parameters]
size = 0

)";

TEST(Dump, MechanismWithTwoDriversIsWrittenByteForByte) {
    driver_t first;
    first.writer = {"W", "w", "/tools/w", "ZDR*Proof*w", {}};
    first.prover = {{"P\xc3\xa9", "p", "/p.exe", "", {{"-t", "", "say \"hi\""}}}, 30, INPUT_FILE};
    first.name = "d1";
    const mechanism_t m = {"x", "mech", TRUST_REDUNDANCY, {first, driver_t()}, {"d1", "d2"}};
    std::ostringstream os;
    os << m;
    EXPECT_EQ(os.str(), TWO_DRIVER_DUMP);
}
