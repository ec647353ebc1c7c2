// The textual dump of mechanism records, byte for byte.

#include "mechanism/Mechanism.h"

#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

using namespace mechanism;

namespace {

template <typename Record> std::string dump(const Record& record) {
    std::ostringstream os;
    os << record;
    return os.str();
}

param_t param(const char* name, const char* separator, const char* value) {
    param_t p;
    p.name = QString::fromUtf8(name);
    p.separator = QString::fromUtf8(separator);
    p.value = QString::fromUtf8(value);
    return p;
}

// Two drivers: the first with full tools and a prover reading a file, the second
// with default (empty) records only.
mechanism_t twoDriverMechanism() {
    driver_t first;
    first.name = "d1";
    first.group = GROUP_FULL;
    first.ext = "never-shown";
    first.fast = true;
    first.writer.name = "W";
    first.writer.default_path = "w";
    first.writer.resource = "ZDR*Proof*w";
    first.writer.path = "/tools/w";
    first.writer.params = {param("-a", " ", "1"), param("-b", "=", "say \"hi\"")};
    first.prover.name = "P\xc3\xa9";
    first.prover.default_path = "p";
    first.prover.path = "/tools/p.exe";
    first.prover.timeout = 30;
    first.prover.input = INPUT_FILE;
    first.prover.params = {param("-t", "", "30"), param("", " ", "")};
    first.reader.name = "R";
    first.reader.path = "/tools/r";

    mechanism_t m;
    m.reserved = "never shown";
    m.name = "mech";
    m.trust = TRUST_REDUNDANCY;
    m.drivers = {first, driver_t()};
    m.driverNames = {"never", "shown"};
    return m;
}

const char TWO_DRIVER_DUMP[] = R"([mechanism]
name = "mech"
trust = "redundancy"

[driver]
name = "d1"
group = "full"

[writer]

[tool]
name = "W"
default_path = "w"
resource = "ZDR*Proof*w"
path = "/tools/w"

[parameters]
size = 2

[parameter]
name = "-a"
separator = " "
value = "1"

[parameter]
name = "-b"
separator = "="
value = "say "hi""

[prover]
name = "Pé"
default_path = "p"
resource = ""
path = "/tools/p.exe"
timeout = "30"
input = file"

[parameters]
size = 2
[parameter]
name = "-t"
separator = ""
value = "30"

[parameter]
name = ""
separator = " "
value = ""

[reader]

[tool]
name = "R"
default_path = ""
resource = ""
path = "/tools/r"

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

} // namespace

TEST(Dump, MechanismWithTwoDriversIsWrittenByteForByte) {
    EXPECT_EQ(dump(twoDriverMechanism()), TWO_DRIVER_DUMP);
}

TEST(Dump, SmallRecordsAndTheirEdges) {
    EXPECT_EQ(dump(mechanism_t()), "[mechanism]\nname = \"\"\ntrust = \"never\"\n\n");
    EXPECT_EQ(dump(param_t()), "[parameter]\nname = \"\"\nseparator = \" \"\nvalue = \"\"\n");

    driver_t outOfTable;
    outOfTable.group = static_cast<group_t>(7);
    EXPECT_THROW(dump(outOfTable), std::out_of_range);
}
