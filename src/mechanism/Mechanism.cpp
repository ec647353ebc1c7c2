#include "mechanism/Mechanism.h"
#include "mechanism/Mechanism_p.h"

#include "front/Utils.h"
#include "pos/pos.h"

#include <QDomDocument>
#include <QFile>
#include <iostream>

namespace mechanism {

const QString TAG_DEFINITION = QStringLiteral("definition");
const QString TAG_DRIVER = QStringLiteral("driver");
const QString TAG_EXPAND = QStringLiteral("expand");
const QString TAG_MECHANISM = QStringLiteral("mechanism");
const QString TAG_PARAM = QStringLiteral("param");
const QString TAG_PROVER = QStringLiteral("prover");
const QString TAG_READER = QStringLiteral("reader");
const QString TAG_WRITER = QStringLiteral("writer");
const QString ATTR_GROUP = QStringLiteral("group");
const QString ATTR_INPUT = QStringLiteral("input");
const QString ATTR_NAME = QStringLiteral("name");
static const QString ATTR_EXT = QStringLiteral("ext");
static const QString ATTR_FAST = QStringLiteral("fast");
const QString ATTR_PATH = QStringLiteral("path");
const QString ATTR_RESOURCE = QStringLiteral("resource");
const QString ATTR_SEPARATOR = QStringLiteral("separator");
const QString ATTR_TIMEOUT = QStringLiteral("timeout");
const QString ATTR_TRUST = QStringLiteral("trust");
const QString ATTR_VALUE = QStringLiteral("value");
const QString ATTR_VALUE_NEVER = QStringLiteral("never");
const QString ATTR_VALUE_REDUNDANCY = QStringLiteral("redundancy");
const QString ATTR_VALUE_ALWAYS = QStringLiteral("always");
const QString ATTR_VALUE_NONE = QStringLiteral("none");
const QString ATTR_VALUE_RELATED = QStringLiteral("related");
const QString ATTR_VALUE_FULL = QStringLiteral("full");
const QString ATTR_VALUE_STDIN = QStringLiteral("stdin");
const QString ATTR_VALUE_FILE = QStringLiteral("file");

const std::map<QString, group_t> groupOfXmlAttr = {
    {ATTR_VALUE_NONE, GROUP_NONE},
    {ATTR_VALUE_RELATED, GROUP_RELATED},
    {ATTR_VALUE_FULL, GROUP_FULL},
};
const std::map<QString, trust_t> trustOfXmlAttr = {
    {ATTR_VALUE_NEVER, TRUST_NEVER},
    {ATTR_VALUE_REDUNDANCY, TRUST_REDUNDANCY},
    {ATTR_VALUE_ALWAYS, TRUST_ALWAYS},
};
static const std::map<group_t, QString> qstringOfGroup = {
    {GROUP_NONE, ATTR_VALUE_NONE},
    {GROUP_RELATED, ATTR_VALUE_RELATED},
    {GROUP_FULL, ATTR_VALUE_FULL},
};
static const std::map<trust_t, QString> qstringOfTrust = {
    {TRUST_NEVER, ATTR_VALUE_NEVER},
    {TRUST_REDUNDANCY, ATTR_VALUE_REDUNDANCY},
    {TRUST_ALWAYS, ATTR_VALUE_ALWAYS},
};
static const std::map<input_t, QString> qstringOfInput = {
    {INPUT_FILE, ATTR_VALUE_FILE},
    {INPUT_STDIN, ATTR_VALUE_STDIN},
};

static const QString TIMEOUT_PLACEHOLDER = QStringLiteral("${timeout}");
static const QString FAST_TRUE = QStringLiteral("true");

namespace fs = std::filesystem;

// The value of `attribute` of `element` in `vocabulary`; an unknown text is reported with
// the file it came from.
template <typename Value>
static Value wordOfXml(const std::map<QString, Value>& vocabulary, const QDomElement& element,
                       const QString& attribute, const QString& defaultText,
                       const QString& fileName) {
    const QString text = element.attribute(attribute, defaultText);
    const auto found = vocabulary.find(text);
    if (found == vocabulary.end())
        throw pos::unknownText(fileName, attribute, text);
    return found->second;
}

static fs::path pathOfQString(const QString& text) {
    return fs::path(text.toUtf8().toStdString());
}

void paramListOfXml(const QDomElement& element, std::list<param_t>& params) {
    for (QDomElement child = element.firstChildElement(TAG_PARAM); !child.isNull();
         child = child.nextSiblingElement(TAG_PARAM)) {
        param_t param; // its separator is the default one
        // No default text: the director tells an absent attribute from an empty one.
        param.name = child.attribute(ATTR_NAME);
        param.separator = child.attribute(ATTR_SEPARATOR, param.separator);
        param.value = child.attribute(ATTR_VALUE);
        params.push_back(param);
    }
}

void expandListOfXml(const QDomElement& element, std::list<param_t>& params,
                     const definitions_t& definitions) {
    for (QDomElement child = element.firstChildElement(TAG_EXPAND); !child.isNull();
         child = child.nextSiblingElement(TAG_EXPAND)) {
        std::list<param_t> expansion = definitions.at(child.attribute(ATTR_NAME));
        params.splice(params.end(), expansion);
    }
}

// Reads the attributes shared by every tool kind and looks for its executable.
static bool locateToolOfXml(const QDomElement& element, tool_t& tool,
                            const std::vector<std::string>& installDirs) {
    tool.name = element.attribute(ATTR_NAME);
    tool.default_path = element.attribute(ATTR_PATH);
    tool.resource = element.attribute(ATTR_RESOURCE);
    tool.path = pathOfQString(computePath(tool.default_path, tool.resource));
    return checkToolExistence(tool.path, installDirs);
}

// All "param" children come before all expansions, however the file interleaves them.
static void allParamsOfXml(const QDomElement& element, std::list<param_t>& params,
                           const definitions_t& definitions) {
    paramListOfXml(element, params);
    expandListOfXml(element, params, definitions);
}

bool toolOfXml(const QDomElement& element, tool_t& tool, definitions_t definitions,
               const std::vector<std::string>& installDirs) {
    if (!locateToolOfXml(element, tool, installDirs)) {
        std::cerr << "Cannot locate tool " << tool.name.toStdString() << std::endl;
        std::cerr << "povrun: " << searchedPlaces(tool, installDirs) << std::endl;
        return false;
    }
    allParamsOfXml(element, tool.params, definitions);
    return true;
}

static bool proverOfXml(const QDomElement& element, prover_t& prover,
                        const definitions_t& definitions,
                        const std::vector<std::string>& installDirs) {
    if (!locateToolOfXml(element, prover, installDirs)) {
        std::cerr << "Cannot locate prover " << prover.name.toStdString() << std::endl;
        std::cerr << "povrun: " << searchedPlaces(prover, installDirs) << std::endl;
        return false;
    }
    allParamsOfXml(element, prover.params, definitions);
    const QString input = element.attribute(ATTR_INPUT, ATTR_VALUE_STDIN);
    prover.input = input == ATTR_VALUE_STDIN ? INPUT_STDIN : INPUT_FILE;
    const QString timeout = element.attribute(ATTR_TIMEOUT);
    if (timeout.isEmpty())
        return true;
    // Text that is not a decimal number gives 0; it still replaces the placeholder.
    prover.timeout = timeout.toInt(nullptr, 10);
    for (param_t& param : prover.params)
        param.value.replace(TIMEOUT_PLACEHOLDER, timeout);
    return true;
}

// Only the first "definition" is read as one; the loop then steps to the root's "param"
// siblings and reads each of them as a further definition. Mechanism files in use are
// written against this rule, so it stays.
static definitions_t definitionsOfXml(const QDomElement& root) {
    definitions_t definitions;
    for (QDomElement element = root.firstChildElement(TAG_DEFINITION); !element.isNull();
         element = element.nextSiblingElement(TAG_PARAM)) {
        std::list<param_t> params;
        paramListOfXml(element, params);
        definitions.insert({element.attribute(ATTR_NAME), params});
    }
    return definitions;
}

// Reads one driver into a fresh `driver`, whose fields hold the defaults; false, after
// the tool's message, when a tool is missing.
static bool driverOfXml(const QDomElement& element, driver_t& driver,
                        const definitions_t& definitions,
                        const std::vector<std::string>& installDirs, const QString& fileName) {
    driver.name = element.attribute(ATTR_NAME);
    driver.group = wordOfXml(groupOfXmlAttr, element, ATTR_GROUP, ATTR_VALUE_NONE, fileName);
    driver.ext = element.attribute(ATTR_EXT, driver.ext);
    driver.fast = element.attribute(ATTR_FAST) == FAST_TRUE;
    return toolOfXml(element.firstChildElement(TAG_WRITER), driver.writer, definitions,
                     installDirs) &&
           proverOfXml(element.firstChildElement(TAG_PROVER), driver.prover, definitions,
                       installDirs) &&
           toolOfXml(element.firstChildElement(TAG_READER), driver.reader, definitions,
                     installDirs);
}

bool ofFile(const QString& fileName, mechanism_t& mechanism,
            const std::vector<std::string>& installDirs) {
    QFile file(fileName);
    if (!file.exists() || !file.open(QIODevice::ReadOnly)) {
        std::clog << "Cannot open '" << fileName.toStdString() << "'." << std::endl;
        return false;
    }
    // A file that is not well-formed reads as an empty document, not as an error; the
    // user is still told why nothing was played.
    QString whyNot;
    bool tooDeep = false;
    const QDomDocument document = pos::documentOfDevice(file, &whyNot, &tooDeep);
    if (tooDeep) {
        std::cerr << "povrun: " << fileName.toStdString() << ": " << whyNot.toStdString()
                  << std::endl;
        return false;
    }
    if (document.isNull())
        std::cerr << "povrun: " << fileName.toStdString() << ": not well-formed XML at "
                  << whyNot.toStdString() << std::endl;
    const QDomElement root = document.firstChildElement(TAG_MECHANISM);
    mechanism.name = baseNameOfPath(fileName.toStdString());
    mechanism.trust = wordOfXml(trustOfXmlAttr, root, ATTR_TRUST, ATTR_VALUE_NEVER, fileName);
    const definitions_t definitions = definitionsOfXml(root);
    for (QDomElement element = root.firstChildElement(TAG_DRIVER); !element.isNull();
         element = element.nextSiblingElement(TAG_DRIVER)) {
        driver_t driver;
        if (!driverOfXml(element, driver, definitions, installDirs, fileName))
            return false;
        mechanism.driverNames.push_back(driver.name);
        mechanism.drivers.push_back(driver);
    }
    return true;
}

// The dump: "key = "value"" lines, std::endl after each so that a dump interleaved with
// other traces keeps its order.
static void quotedLine(std::ostream& os, const char* key, const std::string& value) {
    os << key << " = \"" << value << '"' << std::endl;
}

static void quotedLine(std::ostream& os, const char* key, const QString& value) {
    quotedLine(os, key, value.toStdString());
}

// The leading lines shared by tools and provers, after their header.
static void toolIdentity(std::ostream& os, const tool_t& tool) {
    quotedLine(os, "name", tool.name);
    quotedLine(os, "default_path", tool.default_path);
    quotedLine(os, "resource", tool.resource);
    quotedLine(os, "path", tool.path.string());
}

static void paramBlocks(std::ostream& os, const std::list<param_t>& params) {
    for (const param_t& param : params)
        os << param << std::endl;
}

std::ostream& operator<<(std::ostream& os, const param_t& param) {
    os << "[parameter]" << std::endl;
    quotedLine(os, "name", param.name);
    quotedLine(os, "separator", param.separator);
    quotedLine(os, "value", param.value);
    return os;
}

std::ostream& operator<<(std::ostream& os, const tool_t& tool) {
    os << "[tool]" << std::endl;
    toolIdentity(os, tool);
    os << std::endl;
    os << "[parameters]" << std::endl;
    os << "size = " << tool.params.size() << std::endl;
    os << std::endl;
    paramBlocks(os, tool.params);
    return os;
}

// Differs from a tool's layout on purpose and stays so: its own header, no blank line
// after the path nor before the first parameter, and an input line with only its
// closing quote.
std::ostream& operator<<(std::ostream& os, const prover_t& prover) {
    os << "[prover]" << std::endl;
    toolIdentity(os, prover);
    quotedLine(os, "timeout", std::to_string(prover.timeout));
    os << "input = " << qstringOfInput.at(prover.input).toStdString() << '"' << std::endl;
    os << std::endl;
    os << "[parameters]" << std::endl;
    os << "size = " << prover.params.size() << std::endl;
    paramBlocks(os, prover.params);
    return os;
}

std::ostream& operator<<(std::ostream& os, const driver_t& driver) {
    os << "[driver]" << std::endl;
    quotedLine(os, "name", driver.name);
    quotedLine(os, "group", qstringOfGroup.at(driver.group));
    os << std::endl;
    os << "[writer]" << std::endl;
    os << std::endl;
    os << driver.writer;
    os << driver.prover;
    os << "[reader]" << std::endl;
    os << std::endl;
    os << driver.reader;
    return os;
}

std::ostream& operator<<(std::ostream& os, const mechanism_t& mechanism) {
    os << "[mechanism]" << std::endl;
    quotedLine(os, "name", mechanism.name);
    quotedLine(os, "trust", qstringOfTrust.at(mechanism.trust));
    os << std::endl;
    for (const driver_t& driver : mechanism.drivers)
        os << driver;
    return os;
}

} // namespace mechanism
