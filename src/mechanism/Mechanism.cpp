#include "mechanism/Mechanism.h"
#include "mechanism/Mechanism_p.h"

#include "front/Utils.h"
#include "pos/pos.h"

#include <QDomDocument>
#include <QFile>
#include <QStringList>
#include <algorithm>
#include <iostream>
#include <stdexcept>

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
const QString ATTR_EXT = QStringLiteral("ext");
const QString ATTR_FAST = QStringLiteral("fast");
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
static const QString TIMEOUT_PLACEHOLDER = QStringLiteral("${timeout}");
static const QString FAST_TRUE = QStringLiteral("true");

namespace fs = std::filesystem;

// The error of a word outside its vocabulary, "LINE: unknown WHAT "TEXT" (map::at); allowed:
// WORDS"; ofFile() puts the file name in front.
static std::out_of_range unknownWord(const QDomElement& element, const QString& what,
                                     const QString& text, const QStringList& allowed) {
    const std::string known = allowed.isEmpty() ? std::string("nothing is defined")
                                                : "allowed: " + allowed.join(", ").toStdString();
    return std::out_of_range(
        std::string(pos::unknownText(QString::number(element.lineNumber()), what, text).what()) +
        "; " + known);
}

// The value of `attribute` of `element` in `vocabulary`.
template <typename Value>
static Value wordOfXml(const std::map<QString, Value>& vocabulary, const QDomElement& element,
                       const QString& attribute, const QString& defaultText) {
    const QString text = element.attribute(attribute, defaultText);
    const auto found = vocabulary.find(text);
    if (found != vocabulary.end())
        return found->second;
    // Listed in the order of their values, as the documentation lists them.
    std::vector<std::pair<Value, QString>> words;
    for (const auto& word : vocabulary)
        words.emplace_back(word.second, word.first);
    std::sort(words.begin(), words.end());
    QStringList allowed;
    for (const auto& word : words)
        allowed << word.second;
    throw unknownWord(element, attribute, text, allowed);
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
        const auto found = definitions.find(child.attribute(ATTR_NAME));
        if (found == definitions.end()) {
            QStringList names;
            for (const auto& definition : definitions)
                names << definition.first;
            throw unknownWord(child, TAG_DEFINITION, child.attribute(ATTR_NAME), names);
        }
        std::list<param_t> expansion = found->second;
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

// "Cannot locate tool|prover NAME", where it was looked for, and how to make it found.
static void sayNotFound(const char* kind, const tool_t& tool,
                        const std::vector<std::string>& installDirs) {
    std::cerr << "Cannot locate " << kind << " " << tool.name.toStdString() << std::endl;
    std::cerr << "povrun: " << searchedPlaces(tool, installDirs) << std::endl;
    std::cerr << "povrun: " << howToFix(tool) << std::endl;
}

bool toolOfXml(const QDomElement& element, tool_t& tool, definitions_t definitions,
               const std::vector<std::string>& installDirs) {
    if (!locateToolOfXml(element, tool, installDirs)) {
        sayNotFound("tool", tool, installDirs);
        return false;
    }
    allParamsOfXml(element, tool.params, definitions);
    return true;
}

static bool proverOfXml(const QDomElement& element, prover_t& prover,
                        const definitions_t& definitions,
                        const std::vector<std::string>& installDirs) {
    if (!locateToolOfXml(element, prover, installDirs)) {
        sayNotFound("prover", prover, installDirs);
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

// False, with a line naming the driver and the element, when the driver has no `tag` child:
// its tool would otherwise be reported as "Cannot locate tool " with no name.
static bool hasToolElement(const QDomElement& driver, const QString& tag, const QString& fileName) {
    if (!driver.firstChildElement(tag).isNull())
        return true;
    std::cerr << "povrun: " << fileName.toStdString() << ":" << driver.lineNumber() << ": driver \""
              << driver.attribute(ATTR_NAME).toStdString() << "\" has no <" << tag.toStdString()
              << "> element" << std::endl;
    return false;
}

// Reads one driver into a fresh `driver`, whose fields hold the defaults; false, after
// the message, when a tool or its element is missing.
static bool driverOfXml(const QDomElement& element, driver_t& driver,
                        const definitions_t& definitions,
                        const std::vector<std::string>& installDirs, const QString& fileName) {
    driver.name = element.attribute(ATTR_NAME);
    driver.group = wordOfXml(groupOfXmlAttr, element, ATTR_GROUP, ATTR_VALUE_NONE);
    driver.ext = element.attribute(ATTR_EXT, driver.ext);
    driver.fast = element.attribute(ATTR_FAST) == FAST_TRUE;
    return hasToolElement(element, TAG_WRITER, fileName) &&
           toolOfXml(element.firstChildElement(TAG_WRITER), driver.writer, definitions,
                     installDirs) &&
           hasToolElement(element, TAG_PROVER, fileName) &&
           proverOfXml(element.firstChildElement(TAG_PROVER), driver.prover, definitions,
                       installDirs) &&
           hasToolElement(element, TAG_READER, fileName) &&
           toolOfXml(element.firstChildElement(TAG_READER), driver.reader, definitions,
                     installDirs);
}

// Reads the drivers of `root`, one after the other, until one fails.
static bool driversOfXml(const QDomElement& root, mechanism_t& mechanism,
                         const std::vector<std::string>& installDirs, const QString& fileName) {
    mechanism.trust = wordOfXml(trustOfXmlAttr, root, ATTR_TRUST, ATTR_VALUE_NEVER);
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
    warnAboutUnknownXml(document, fileName);
    const QDomElement root = document.firstChildElement(TAG_MECHANISM);
    mechanism.name = baseNameOfPath(fileName.toStdString());
    try {
        return driversOfXml(root, mechanism, installDirs, fileName);
    } catch (const std::out_of_range& error) {
        throw std::out_of_range(fileName.toStdString() + ":" + error.what());
    }
}

} // namespace mechanism
