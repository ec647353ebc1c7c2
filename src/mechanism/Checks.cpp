// Warnings about what a mechanism file says that the reader does not use: unknown elements
// and attributes, and an "input" word it reads as "file". The reader itself ignores them
// without a word, so a misspelt name would silently give every goal a default.

#include "mechanism/Mechanism_p.h"

#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QStringList>
#include <iostream>

namespace mechanism {

namespace {

// What the reader looks at in one kind of element.
struct grammar_t {
    QStringList attributes;
    QStringList children;
};

// The grammar of `tag`, whose parent is `parentTag`; null for an element the reader never
// reads there. A "param" at the mechanism's level is read as a definition, with its own
// "param" children.
const grammar_t* grammarOf(const QString& tag, const QString& parentTag) {
    static const QStringList tool = {ATTR_NAME, ATTR_PATH, ATTR_RESOURCE};
    static const QStringList toolChildren = {TAG_PARAM, TAG_EXPAND};
    static const QStringList param = {ATTR_NAME, ATTR_SEPARATOR, ATTR_VALUE};
    static const std::map<QString, grammar_t> grammars = {
        {TAG_MECHANISM, {{ATTR_TRUST}, {TAG_DEFINITION, TAG_DRIVER, TAG_PARAM}}},
        {TAG_DEFINITION, {{ATTR_NAME}, {TAG_PARAM}}},
        {TAG_DRIVER,
         {{ATTR_NAME, ATTR_GROUP, ATTR_EXT, ATTR_FAST}, {TAG_WRITER, TAG_PROVER, TAG_READER}}},
        {TAG_WRITER, {tool, toolChildren}},
        {TAG_READER, {tool, toolChildren}},
        {TAG_PROVER, {tool + QStringList{ATTR_INPUT, ATTR_TIMEOUT}, toolChildren}},
        {TAG_EXPAND, {{ATTR_NAME}, {}}},
    };
    static const grammar_t definitionParam = {param, {TAG_PARAM}};
    static const grammar_t plainParam = {param, {}};
    if (tag == TAG_PARAM)
        return parentTag == TAG_MECHANISM ? &definitionParam : &plainParam;
    const auto found = grammars.find(tag);
    return found == grammars.end() ? nullptr : &found->second;
}

void warn(const QString& fileName, const QDomElement& element, const QString& what) {
    std::cerr << "povrun: " << fileName.toStdString() << ":" << element.lineNumber() << ": "
              << what.toStdString() << std::endl;
}

void checkAttributes(const QDomElement& element, const grammar_t& grammar,
                     const QString& fileName) {
    QStringList names;
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.count(); ++i)
        names << attributes.item(i).nodeName();
    // Attributes come in no fixed order; the warnings do.
    names.sort();
    for (const QString& name : names)
        if (!grammar.attributes.contains(name))
            warn(fileName, element,
                 QStringLiteral("unknown attribute \"%1\" of <%2> ignored")
                     .arg(name, element.tagName()));
    const QString input = element.attribute(ATTR_INPUT, ATTR_VALUE_STDIN);
    if (element.tagName() == TAG_PROVER && input != ATTR_VALUE_STDIN && input != ATTR_VALUE_FILE)
        warn(fileName, element,
             QStringLiteral("input \"%1\" is neither \"%2\" nor \"%3\"; read as \"%3\"")
                 .arg(input, ATTR_VALUE_STDIN, ATTR_VALUE_FILE));
}

void checkElement(const QDomElement& element, const grammar_t& grammar, const QString& fileName) {
    checkAttributes(element, grammar, fileName);
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        const grammar_t* childGrammar = grammarOf(child.tagName(), element.tagName());
        if (childGrammar != nullptr && grammar.children.contains(child.tagName()))
            checkElement(child, *childGrammar, fileName);
        else
            warn(fileName, child,
                 QStringLiteral("unknown element <%1> in <%2> ignored")
                     .arg(child.tagName(), element.tagName()));
    }
}

} // namespace

void warnAboutUnknownXml(const QDomDocument& document, const QString& fileName) {
    const QDomElement root = document.documentElement();
    if (root.isNull())
        return;
    if (root.tagName() != TAG_MECHANISM) {
        warn(fileName, root,
             QStringLiteral("unknown element <%1> ignored: the file must hold <%2>")
                 .arg(root.tagName(), TAG_MECHANISM));
        return;
    }
    checkElement(root, *grammarOf(TAG_MECHANISM, QString()), fileName);
}

} // namespace mechanism
