#pragma once
// The proof obligation status file (.pos): status vocabulary, document operations and
// metrics. Every operation that reads a status text lets std::out_of_range "map::at"
// escape for a text it does not know.

#include <QDomDocument>
#include <QDomElement>
#include <QString>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

class QIODevice;

namespace pos {

// Proof status of a goal; counters elsewhere are indexed by the numeric value.
enum status_t : int32_t {
    UNPROVED = 0,
    UNKNOWN = 1,
    UNRELIABLY_PROVED = 2,
    PROVED = 3,
    DISPROVED = 4,
};

extern const QString ATTR_VALUE_UNPROVED;
extern const QString ATTR_VALUE_PROVED;
extern const QString ATTR_VALUE_PROVED_ZERO;
extern const QString ATTR_VALUE_PROVED_ONE;
extern const QString ATTR_VALUE_PROVED_TWO;
extern const QString ATTR_VALUE_PROVED_THREE;
extern const QString ATTR_VALUE_PROVED_UTIL;
extern const QString ATTR_VALUE_PROVED_FAST;
extern const QString ATTR_VALUE_UNRELIABLY_PROVED;
extern const QString ATTR_VALUE_DISPROVED;
extern const QString ATTR_VALUE_UNKNOWN;
extern const QString ATTR_VALUE_VALID;
extern const QString ATTR_VALUE_INVALID;

// One character per status for compact displays; UNPROVED and UNKNOWN share '-'.
extern const std::map<status_t, char> charOfStatus;

// The attribute text of a status ("Unproved", "Unknown", "UnreliablyProved", "Proved",
// "Disproved"). Throws std::out_of_range "map::at" for a value outside 0..4.
QString strOfProofStatus(const status_t& s);
// The status of an attribute text, exact and case-sensitive; the six "Proved(...)"
// spellings of the environment read as PROVED. Throws std::out_of_range "map::at" for
// any other text ("Valid", "", " Proved", ...).
status_t proofStatusOfAttrValue(const QString& v);
// The same conversion for the text of `attribute` read from `file`; for a text it does
// not know, throws unknownText(file, attribute, v).
status_t proofStatusOfAttrValue(const QString& v, const QString& attribute, const QString& file);
// The error of any reader that meets a text outside its vocabulary: a std::out_of_range
// whose what() is one line, "<file>: unknown <attribute> \"<text>\" (map::at)".
std::out_of_range unknownText(const QString& file, const QString& attribute, const QString& text);
// Writes strOfProofStatus(s) as UTF-8.
std::ostream& operator<<(std::ostream& os, const status_t& s);

extern const QString TAG_PROOF_OBLIGATIONS;
extern const QString TAG_PROOF_OBLIGATION;
extern const QString TAG_SIMPLE_GOAL;
extern const QString TAG_PROOF_STATE;
extern const QString TAG_TAG;
extern const QString TAG_MECHANISM;
extern const QString TAG_DRIVER;
extern const QString TAG_IAPA;
extern const QString TAG_STATUS;
extern const QString ATTR_AUTHOR;
extern const QString ATTR_STATUS;
extern const QString ATTR_NAME;
extern const QString ATTR_PROOF_STATE;
extern const QString ATTR_VALUE;

// Indentation of a written .pos document.
constexpr int XML_INDENT = 4;

// How deep elements may nest in a file that is read. The parser, and every walk of a
// document, recurse once per level: a file nested tens of thousands deep would overflow
// the stack, where real files stay below twenty levels.
constexpr int MAX_DEPTH = 2000;

// Parses `device` (already open) into a document. A device that does not hold
// well-formed XML, or holds nothing, gives a null document: a partial tree is never
// returned, so a truncated file can never be written back smaller.
// When `whyNot` is given and the result is null, it receives the parser's reason:
// "line L, column C: <message>". Elements nested deeper than MAX_DEPTH are refused
// before parsing: `tooDeep`, when given, is then set and `whyNot` says how deep.
QDomDocument documentOfDevice(QIODevice& device, QString* whyNot = nullptr,
                              bool* tooDeep = nullptr);
// The depth of the deepest element of `xml`, by a plain scan that skips comments, CDATA,
// processing instructions, declarations and quoted attribute values.
int elementDepth(const QByteArray& xml);
// Opens and parses the file at `path`; a missing, unreadable, malformed or too deeply
// nested file gives a null document. When `whyNot` is given and the result is null, it
// receives one line that starts with `path` and says why: missing, cannot be read (with
// the system's reason), nested too deep (with the depth) or not well-formed XML (with
// line, column and the parser's message).
QDomDocument documentOfFile(const QString& path, QString* whyNot = nullptr);
// Makes the elements and attribute values of `doc` that spell the same name or value
// share one string. The parser gives every node its own copy, and in a large file the
// tag names and the few status words take a sixth of the document's memory; nothing a
// reader or a save sees changes.
void shareRepeatedTexts(QDomDocument& doc);

// Forgets every external result: each "Mechanism" status becomes "Unproved" (the
// elements and their drivers stay) and each goal's status is recomputed from its own
// proof state alone, the "iapa" verdict ignored.
void unprove(QDomDocument& doc);
// Removes, in each goal, the first "Mechanism" element named `name` (UTF-8, byte for
// byte) and recomputes that goal's status; a goal without one is left as it is, even an
// inconsistent one. `changed` tells whether anything was removed. False for a null
// document or a failed removal. Throws "map::at" for an unknown status text.
bool removeMechanism(QDomDocument& doc, const std::string& name, bool& changed);
// True when every goal's "status" equals the status its children give (also for a
// document without goals); otherwise writes the first inconsistent goal as XML to
// stderr and returns false. Throws "map::at" for an unknown status text.
bool checkPosInvariant(const QDomDocument& doc);
// Fills `names` with the mechanism names recorded in the file at `path`, first-seen
// order, no duplicates. False, with `names` untouched, when the file yields no document
// (`whyNot`, when given, then says why, as documentOfFile does). Throws unknownText for a
// goal status it does not know.
bool getMechanisms(const std::string& path, std::list<std::string>& names,
                   QString* whyNot = nullptr);

// Counters of "Driver" elements of one driver name; "UnreliablyProved" counts nowhere.
struct driver_metrics_t {
    uint32_t unproved = 0;
    uint32_t unknown = 0;
    uint32_t proved = 0;
    uint32_t disproved = 0;
};

// Counters of "Mechanism" elements of one mechanism name.
struct mechanism_metrics_t {
    uint32_t unproved = 0;
    uint32_t unknown = 0;
    uint32_t proved = 0;
    uint32_t unreliablyProved = 0;
    uint32_t disproved = 0;
    std::map<std::string, std::unique_ptr<driver_metrics_t>> drivers;
};

// Counters of the goals of a .pos file. A goal "Unknown" counts only in total.
struct metrics_t {
    uint32_t total = 0;
    uint32_t unproved = 0;
    uint32_t proved = 0;
    uint32_t unreliablyProved = 0;
    uint32_t disproved = 0;
    uint32_t provedExternally = 0; // at least one "Mechanism" with status "Proved"
    uint32_t provedInternally = 0; // proof state one of the environment's "Proved(...)"
    std::map<std::string, std::unique_ptr<mechanism_metrics_t>> mechanisms;
};

// Fills `m` from the file at `path`; false, with `m` untouched, when the file yields no
// document. Throws unknownText for an unknown status text of a goal, a "Mechanism" or a
// "Driver" (a missing "Mechanism" or "Driver" status included; a goal's defaults to
// "Unproved").
bool getMetrics(const std::string& path, metrics_t& m);

} // namespace pos
