#pragma once
// A proof mechanism: an ordered list of drivers, each naming a writer, a prover and a
// reader tool. Records are plain values; ofFile() fills them from a mechanism XML file
// and resolves every tool's executable on disk.

#include <QString>
#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace mechanism {

// Which proof obligations a driver takes in one writer job.
enum group_t : int32_t { GROUP_NONE = 0, GROUP_RELATED = 1, GROUP_FULL = 2 };
// How far a mechanism's "Proved" answers are trusted.
enum trust_t : int32_t { TRUST_NEVER = 0, TRUST_REDUNDANCY = 1, TRUST_ALWAYS = 2 };
// How the prover receives its secondary proof obligation file.
enum input_t : int32_t { INPUT_FILE = 0, INPUT_STDIN = 1 };

// One command-line parameter. An absent "name" or "value" attribute is a null QString,
// a present empty one is an empty non-null QString: the director tells them apart.
struct param_t {
    QString name;
    QString separator = QStringLiteral(" ");
    QString value;
};

// A writer or a reader tool.
struct tool_t {
    QString name;
    QString default_path;       // the "path" attribute as written
    std::filesystem::path path; // resolved executable, empty until found
    QString resource;           // resource naming the location, may be empty
    std::list<param_t> params;
};

// The prover: a tool with a time limit and an input mode.
struct prover_t : tool_t {
    int32_t timeout = -1; // -1 when the attribute is absent or empty
    input_t input = INPUT_STDIN;
};

struct driver_t {
    tool_t writer;
    prover_t prover;
    tool_t reader;
    QString name;
    group_t group = GROUP_NONE;
    QString ext = QStringLiteral("po2");
    bool fast = false;
};

struct mechanism_t {
    QString reserved; // never set by the reader; kept empty
    std::string name; // base name of the mechanism file
    trust_t trust = TRUST_NEVER;
    std::vector<driver_t> drivers;
    std::list<QString> driverNames; // in the order of drivers
};

extern const QString TAG_DEFINITION;
extern const QString TAG_DRIVER;
extern const QString TAG_EXPAND;
extern const QString TAG_MECHANISM;
extern const QString TAG_PARAM;
extern const QString TAG_PROVER;
extern const QString TAG_READER;
extern const QString TAG_WRITER;
extern const QString ATTR_EXT;
extern const QString ATTR_FAST;
extern const QString ATTR_GROUP;
extern const QString ATTR_INPUT;
extern const QString ATTR_NAME;
extern const QString ATTR_PATH;
extern const QString ATTR_RESOURCE;
extern const QString ATTR_SEPARATOR;
extern const QString ATTR_TIMEOUT;
extern const QString ATTR_TRUST;
extern const QString ATTR_VALUE;
extern const QString ATTR_VALUE_NEVER;
extern const QString ATTR_VALUE_REDUNDANCY;
extern const QString ATTR_VALUE_ALWAYS;
extern const QString ATTR_VALUE_NONE;
extern const QString ATTR_VALUE_RELATED;
extern const QString ATTR_VALUE_FULL;
extern const QString ATTR_VALUE_STDIN;
extern const QString ATTR_VALUE_FILE;

// XML spelling to value; at() on an unknown spelling throws std::out_of_range "map::at".
extern const std::map<QString, group_t> groupOfXmlAttr;
extern const std::map<QString, trust_t> trustOfXmlAttr;

// Reads the mechanism file `fileName` into `mechanism`, locating every tool in
// `installDirs` and then the current directory.
// Returns false, with "Cannot open '<file>'." on std::clog, when the file cannot be
// opened; false, with "Cannot locate tool|prover <name>" on std::cerr followed by a line
// naming the path asked for and every place searched and a line saying how to make it
// found, when a tool is not found; false, with a line naming the driver and the element,
// when a driver lacks its writer, prover or reader element (drivers completed before the
// failure stay in `mechanism`). Elements and attributes it does not read, and an "input"
// read as "file" although not spelt so, are warned about on std::cerr, "FILE:LINE: ...".
// A file that is not well-formed XML reads as an empty document: no drivers, true, and
// a line on std::cerr with the file, the line, the column and the parser's message.
// Throws std::out_of_range, "FILE:LINE: unknown WHAT "TEXT" (map::at); allowed: WORDS",
// for an unknown "trust" or "group" value or an "expand" of an unknown definition, and
// std::filesystem::filesystem_error, naming it, for an install directory that does not
// exist.
bool ofFile(const QString& fileName, mechanism_t& mechanism,
            const std::vector<std::string>& installDirs);

// Human-readable dumps, one "key = \"value\"" line per field (not meant to be read back).
std::ostream& operator<<(std::ostream& os, const param_t& param);
std::ostream& operator<<(std::ostream& os, const tool_t& tool);
std::ostream& operator<<(std::ostream& os, const prover_t& prover);
std::ostream& operator<<(std::ostream& os, const driver_t& driver);
std::ostream& operator<<(std::ostream& os, const mechanism_t& mechanism);

} // namespace mechanism
