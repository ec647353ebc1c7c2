#pragma once
// Internal steps of the mechanism reader, declared here only so that the tests can reach
// them; the rest of the system goes through ofFile(). Tool location lives in
// ToolLocation.cpp, the reading of the XML in Mechanism.cpp.

#include "mechanism/Mechanism.h"

#include <QDomDocument>
#include <QDomElement>

namespace mechanism {

// Named, reusable parameter lists of one mechanism file ("definition" elements).
using definitions_t = std::map<QString, std::list<param_t>>;

// The path text of a tool: the value of resource `resource` when it names one with a
// non-empty value, cleaned with QDir::cleanPath; otherwise `defaultPath` as written.
// Only the text after the last '*' of `resource` is used, and it is always looked up in
// the resource section "Proof".
QString computePath(const QString& defaultPath, const QString& resource);

// Looks for an executable (regular file with the owner-execute bit) at `path`.
// An absolute path is tried alone. A relative one is tried under each of `installDirs`
// (made canonical), then under the current directory; in each place a path without an
// extension is also tried with ".exe", right after the plain candidate.
// True when found, with `path` replaced by the location found; false leaves `path` as
// it was. Throws std::filesystem::filesystem_error, naming the directory, when an install
// directory does not exist.
bool checkToolExistence(std::filesystem::path& path, const std::vector<std::string>& installDirs);

// One line for the user after a tool was not found: the path asked for, every place it
// was looked for in order (install directories as given, then the current directory),
// and the tool's resource with whether it was found and its value.
std::string searchedPlaces(const tool_t& tool, const std::vector<std::string>& installDirs);

// One line for the user after searchedPlaces(): the three ways to make `tool` found (a
// resource line given with -r, an -i folder, an absolute path), with its names filled in.
std::string howToFix(const tool_t& tool);

// Writes one warning on std::cerr, "povrun: FILE:LINE: ...", for each element and attribute
// of `document` that the reader does not read, and for a prover "input" other than "stdin"
// and "file" (read as "file"). Changes nothing; the file is read as it stands.
void warnAboutUnknownXml(const QDomDocument& document, const QString& fileName);

// Reads a writer or a reader from `element` (a null element reads as all defaults) and
// locates it. When found, appends its "param" children and then the parameters of its
// "expand" children, and returns true; otherwise writes "Cannot locate tool <name>" and
// the places searched and how to fix it on std::cerr, and returns false. Throws
// std::out_of_range, "LINE: unknown definition ... (map::at); allowed: NAMES", for an
// "expand" of a name missing from `definitions`.
bool toolOfXml(const QDomElement& element, tool_t& tool, definitions_t definitions,
               const std::vector<std::string>& installDirs);

// Appends one parameter per "param" child of `element`, in document order. An absent
// "name" or "value" reads as a null QString; "separator" defaults to one blank.
void paramListOfXml(const QDomElement& element, std::list<param_t>& params);

// Appends, for each "expand" child of `element` in document order, a copy of the
// definition it names. Throws std::out_of_range, "LINE: unknown definition "NAME"
// (map::at); allowed: NAMES", for an unknown name.
void expandListOfXml(const QDomElement& element, std::list<param_t>& params,
                     const definitions_t& definitions);

} // namespace mechanism
