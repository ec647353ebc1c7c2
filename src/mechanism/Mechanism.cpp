#include "mechanism/Mechanism.h"

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

// TODO(mechanism reader): the reader, the tool search and the dump land with their issue.
bool ofFile(const QString& fileName, mechanism_t& mechanism,
            const std::vector<std::string>& installDirs) {
    (void)fileName;
    (void)mechanism;
    (void)installDirs;
    (void)ATTR_EXT;
    (void)ATTR_FAST;
    (void)qstringOfGroup;
    (void)qstringOfTrust;
    (void)qstringOfInput;
    return false;
}

std::ostream& operator<<(std::ostream& os, const param_t&) { return os; }
std::ostream& operator<<(std::ostream& os, const tool_t&) { return os; }
std::ostream& operator<<(std::ostream& os, const prover_t&) { return os; }
std::ostream& operator<<(std::ostream& os, const driver_t&) { return os; }
std::ostream& operator<<(std::ostream& os, const mechanism_t&) { return os; }

} // namespace mechanism
