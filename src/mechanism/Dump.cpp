// The human-readable dump of mechanism records.

#include "mechanism/Mechanism.h"

namespace mechanism {

// Built on first use: the spellings they copy are constants of another source file, which
// may not be initialised yet while this file's own constants are.
static const QString& qstringOfGroup(group_t group) {
    static const std::map<group_t, QString> texts = {
        {GROUP_NONE, ATTR_VALUE_NONE},
        {GROUP_RELATED, ATTR_VALUE_RELATED},
        {GROUP_FULL, ATTR_VALUE_FULL},
    };
    return texts.at(group);
}

static const QString& qstringOfTrust(trust_t trust) {
    static const std::map<trust_t, QString> texts = {
        {TRUST_NEVER, ATTR_VALUE_NEVER},
        {TRUST_REDUNDANCY, ATTR_VALUE_REDUNDANCY},
        {TRUST_ALWAYS, ATTR_VALUE_ALWAYS},
    };
    return texts.at(trust);
}

static const QString& qstringOfInput(input_t input) {
    static const std::map<input_t, QString> texts = {
        {INPUT_FILE, ATTR_VALUE_FILE},
        {INPUT_STDIN, ATTR_VALUE_STDIN},
    };
    return texts.at(input);
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
    os << "input = " << qstringOfInput(prover.input).toStdString() << '"' << std::endl;
    os << std::endl;
    os << "[parameters]" << std::endl;
    os << "size = " << prover.params.size() << std::endl;
    paramBlocks(os, prover.params);
    return os;
}

std::ostream& operator<<(std::ostream& os, const driver_t& driver) {
    os << "[driver]" << std::endl;
    quotedLine(os, "name", driver.name);
    quotedLine(os, "group", qstringOfGroup(driver.group));
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
    quotedLine(os, "trust", qstringOfTrust(mechanism.trust));
    os << std::endl;
    for (const driver_t& driver : mechanism.drivers)
        os << driver;
    return os;
}

} // namespace mechanism
