#include "mechanism/Mechanism_p.h"

#include "resource/p_api.h"

#include <QDir>
#include <system_error>

namespace mechanism {

namespace fs = std::filesystem;

// Tool locations live in this one resource section: the text of a "resource" attribute
// before its last '*' does not choose the section.
static const char RESOURCE_SECTION_PROOF[] = "Proof";
static const char RESOURCE_NAME_SEPARATOR = '*';
// Executables of the target platform may carry this suffix that mechanism files omit.
static const char EXECUTABLE_SUFFIX[] = ".exe";

QString computePath(const QString& defaultPath, const QString& resource) {
    if (resource.isEmpty())
        return defaultPath;
    const QString name =
        resource.mid(resource.lastIndexOf(QLatin1Char(RESOURCE_NAME_SEPARATOR)) + 1);
    const char* value = lookup_resource(RESOURCE_SECTION_PROOF, name.toUtf8().constData());
    const QString cleaned = QDir::cleanPath(QString::fromUtf8(value));
    return cleaned.isEmpty() ? defaultPath : cleaned;
}

// A candidate whose status cannot be read (too long, a loop of links) is simply not
// accepted: the search goes on with the next place.
static bool isExecutableFile(const fs::path& candidate) {
    std::error_code error;
    const fs::file_status status = fs::status(candidate, error);
    return fs::exists(status) && fs::is_regular_file(status) &&
           (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
}

// Tries `base`/`path`, then `base`/`path`.exe when `path` has no extension.
static bool findUnder(const fs::path& base, fs::path& path) {
    const fs::path plain = base / path;
    if (isExecutableFile(plain)) {
        path = plain;
        return true;
    }
    if (path.has_extension())
        return false;
    fs::path suffixed = path;
    suffixed += EXECUTABLE_SUFFIX;
    const fs::path withSuffix = base / suffixed;
    if (!isExecutableFile(withSuffix))
        return false;
    path = withSuffix;
    return true;
}

// The error names the install directory that is missing, not only that a path could not be
// made canonical.
static fs::path canonicalInstallDir(const std::string& directory) {
    try {
        return fs::canonical(directory);
    } catch (const fs::filesystem_error& error) {
        throw fs::filesystem_error("install directory (-i) " + directory + " is not usable",
                                   error.path1(), error.code());
    }
}

bool checkToolExistence(fs::path& path, const std::vector<std::string>& installDirs) {
    if (path.is_absolute())
        return isExecutableFile(path);
    for (const std::string& directory : installDirs) {
        if (findUnder(canonicalInstallDir(directory), path))
            return true;
    }
    return findUnder(fs::current_path(), path);
}

// The name a resource line would give the tool: the resource's own name, else the tool's
// name, else its file name.
static std::string resourceNameOf(const tool_t& tool) {
    if (!tool.resource.isEmpty())
        return tool.resource
            .mid(tool.resource.lastIndexOf(QLatin1Char(RESOURCE_NAME_SEPARATOR)) + 1)
            .toStdString();
    if (!tool.name.isEmpty())
        return tool.name.toStdString();
    const std::string file = tool.path.filename().string();
    return file.empty() ? "NAME" : file;
}

std::string howToFix(const tool_t& tool) {
    const std::string line = "\"ZDR*Proof*" + resourceNameOf(tool) + ": /absolute/path\"";
    std::string fix = "to fix it, add ";
    if (tool.resource.isEmpty())
        fix += "resource=\"ZDR*Proof*" + resourceNameOf(tool) + "\" to the tool and ";
    fix += "the line " + line + " to a resource file given with -r";
    if (!tool.path.empty() && tool.path.is_relative())
        fix += ", put \"" + tool.path.string() + "\" in a folder given with -i";
    return fix + ", or write an absolute path in path=\"...\"";
}

// One line for the user: the path asked for, every place it was looked for in order,
// and what the tool's resource gave.
std::string searchedPlaces(const tool_t& tool, const std::vector<std::string>& installDirs) {
    std::string places = "looked for \"" + tool.path.string() + "\"";
    if (tool.path.is_absolute()) {
        places += " only (an absolute path)";
    } else {
        places += " in ";
        for (const std::string& directory : installDirs)
            places += directory + ", then in ";
        places += "the current directory " + fs::current_path().string();
    }
    if (tool.resource.isEmpty())
        return places + "; no resource named";
    const QString name =
        tool.resource.mid(tool.resource.lastIndexOf(QLatin1Char(RESOURCE_NAME_SEPARATOR)) + 1);
    const char* value = lookup_resource(RESOURCE_SECTION_PROOF, name.toUtf8().constData());
    places += "; resource \"" + tool.resource.toStdString() + "\"";
    return places + (value == nullptr ? " not found" : std::string(" found: ") + value);
}

} // namespace mechanism
