// Reading mechanism files: vocabulary, definitions, parameter order, tools and failures.

#include "mechanism/Mechanism.h"

#include "common/testutil.h"
#include "resource/p_api.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

// Readable failure messages for QString values.
static void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}
using namespace mechanism;

namespace {

// Collects what is written on std::cerr and std::clog while it lives.
class CapturedStreams {
public:
    CapturedStreams()
        : savedErr(std::cerr.rdbuf(err.rdbuf())), savedLog(std::clog.rdbuf(log.rdbuf())) {}
    ~CapturedStreams() {
        std::cerr.rdbuf(savedErr);
        std::clog.rdbuf(savedLog);
    }
    std::ostringstream err;
    std::ostringstream log;

private:
    std::streambuf* savedErr;
    std::streambuf* savedLog;
};

// A temporary folder with an install directory "tools" holding the executables w, p
// and r, and the mechanism files of a test.
class MechanismFiles {
public:
    MechanismFiles() : tools(fs::canonical(temp.path().toStdString()) / "tools") {
        fs::create_directory(tools);
        for (const char* name : {"w", "p", "r"})
            testutil::writeScript(QString::fromStdString((tools / name).string()), "exit 0\n");
    }
    QString write(const QString& name, const QByteArray& content) const {
        const QString path = temp.filePath(name);
        testutil::writeFile(path, content);
        return path;
    }
    std::vector<std::string> installDirs() const { return {tools.string()}; }
    std::string tool(const char* name) const { return (tools / name).string(); }
    QString path(const QString& name) const { return temp.filePath(name); }

private:
    QTemporaryDir temp;
    fs::path tools;
};

// "name|separator|value" for each parameter, "~" standing for a null QString so that an
// absent attribute shows apart from an empty one.
std::string paramsOf(const std::list<param_t>& params) {
    const auto text = [](const QString& s) { return s.isNull() ? "~" : s.toStdString(); };
    std::string out;
    for (const param_t& p : params)
        out += text(p.name) + "|" + text(p.separator) + "|" + text(p.value) + "\n";
    return out;
}

std::vector<std::string> namesOf(const mechanism_t& m) {
    std::vector<std::string> names;
    for (const QString& name : m.driverNames)
        names.push_back(name.toStdString());
    return names;
}

const QByteArray RICH_MECHANISM = R"(<?xml version="1.0"?>
<mechanism trust="redundancy">
  <definition name="common">
    <param name="-v"/>
    <param name="-l" separator="=" value="${timeout}"/>
  </definition>
  <param name="extra">
    <param name="-x" value=""/>
  </param>
  <definition name="second"><param name="-s"/></definition>
  <param name="common"><param name="-shadowed"/></param>
  <driver name="d1" group="related" ext="po3" fast="true">
    <writer name="W" path="w">
      <expand name="extra"/>
      <param name="-w1" value="one"/>
      <expand name="common"/>
      <param name="-w2" separator="" value="two"/>
    </writer>
    <prover name="P" path="p" input="file" timeout="30">
      <param name="-t" value="limit=${timeout}s,${timeout}"/>
      <expand name="common"/>
      <param name="-T" value="${TIMEOUT}"/>
    </prover>
    <reader name="R" path="r"><param/></reader>
  </driver>
  <driver name="d2" group="full" fast="TRUE">
    <writer path="w"/>
    <prover path="p" input="FILE" timeout="abc"><param value="a ${timeout}"/></prover>
    <reader path="r"/>
  </driver>
  <driver name="d3" group="none">
    <writer path="w"/><prover path="p" input="x"><param value="${timeout}"/></prover><reader path="r"/>
  </driver>
  <driver name="d4">
    <writer path="w"/><prover path="p" input="stdin"/><reader path="r"/>
  </driver>
  <driver name="d5">
    <writer path="w"/><prover path="p"/><reader path="r"/>
  </driver>
</mechanism>
)";

} // namespace

TEST(Reader, ReadsDefinitionsParametersAndDriverAttributesWithTheirQuirks) {
    MechanismFiles files;
    const QString file = files.write("rich.v2.xml", RICH_MECHANISM);
    mechanism_t m;
    CapturedStreams streams;
    ASSERT_TRUE(ofFile(file, m, files.installDirs()));
    EXPECT_EQ(streams.err.str() + streams.log.str(), "");

    EXPECT_EQ(m.name, "rich.v2");
    EXPECT_EQ(m.trust, TRUST_REDUNDANCY);
    EXPECT_EQ(namesOf(m), (std::vector<std::string>{"d1", "d2", "d3", "d4", "d5"}));
    ASSERT_EQ(m.drivers.size(), 5u);

    const driver_t& d1 = m.drivers[0];
    EXPECT_EQ(d1.group, GROUP_RELATED);
    EXPECT_EQ(d1.ext, "po3");
    EXPECT_TRUE(d1.fast);
    EXPECT_EQ(d1.writer.name, "W");
    EXPECT_EQ(d1.writer.default_path, "w");
    EXPECT_EQ(d1.writer.path.string(), files.tool("w"));
    EXPECT_EQ(d1.prover.path.string(), files.tool("p"));
    EXPECT_EQ(d1.reader.path.string(), files.tool("r"));
    // Params before expansions; the root's "param" siblings of the first definition are
    // definitions too, a later one of the same name does not replace the first, and the
    // writer's "${timeout}" is left alone.
    EXPECT_EQ(paramsOf(d1.writer.params), "-w1| |one\n"
                                          "-w2||two\n"
                                          "-x| |\n"
                                          "-v| |~\n"
                                          "-l|=|${timeout}\n");
    EXPECT_EQ(paramsOf(d1.prover.params), "-t| |limit=30s,30\n"
                                          "-T| |${TIMEOUT}\n"
                                          "-v| |~\n"
                                          "-l|=|30\n");
    EXPECT_EQ(paramsOf(d1.reader.params), "~| |~\n");
    EXPECT_EQ(d1.prover.timeout, 30);
    EXPECT_EQ(d1.prover.input, INPUT_FILE);

    const driver_t& d2 = m.drivers[1];
    EXPECT_EQ(d2.group, GROUP_FULL);
    EXPECT_EQ(d2.ext, "po2");
    EXPECT_FALSE(d2.fast) << "fast is compared case-sensitively";
    EXPECT_EQ(d2.prover.timeout, 0) << "a timeout that is not a number";
    EXPECT_EQ(paramsOf(d2.prover.params), "~| |a abc\n");
    EXPECT_EQ(d2.prover.input, INPUT_FILE);

    EXPECT_EQ(m.drivers[2].group, GROUP_NONE);
    EXPECT_EQ(m.drivers[2].prover.timeout, -1);
    EXPECT_EQ(paramsOf(m.drivers[2].prover.params), "~| |${timeout}\n");
    EXPECT_EQ(m.drivers[2].prover.input, INPUT_FILE);
    EXPECT_EQ(m.drivers[3].prover.input, INPUT_STDIN);
    EXPECT_EQ(m.drivers[4].prover.input, INPUT_STDIN);
}

TEST(Reader, MissingToolStopsTheReadingAndKeepsTheDriversBeforeIt) {
    const auto driverXml = [](int n, const char* writer, const char* prover, const char* reader) {
        const QByteArray i = QByteArray::number(n);
        QByteArray xml = "<driver name=\"d" + i + "\">";
        if (writer != nullptr)
            xml += "<writer name=\"W" + i + "\" path=\"" + writer + "\"/>";
        xml += "<prover name=\"P" + i + "\" path=\"" + prover + "\"/>";
        return xml + "<reader name=\"R" + i + "\" path=\"" + reader + "\"/></driver>\n";
    };
    const QByteArray good1 = driverXml(1, "w", "p", "r");
    const QByteArray good2 = driverXml(2, "w", "p", "r");
    struct Row {
        const char* name;
        QByteArray drivers;
        std::string message;
        std::vector<std::string> kept;
    };
    const Row rows[] = {
        {"reader of the first driver",
         driverXml(1, "w", "p", "none") + good2,
         "Cannot locate tool R1\n",
         {}},
        {"writer of the second driver",
         good1 + driverXml(2, "none", "p", "r"),
         "Cannot locate tool W2\n",
         {"d1"}},
        {"prover of the third driver",
         good1 + good2 + driverXml(3, "w", "w.sh", "r"),
         "Cannot locate prover P3\n",
         {"d1", "d2"}},
        {"driver without a writer element",
         good1 + driverXml(2, nullptr, "p", "r") + good2,
         "Cannot locate tool \n",
         {"d1"}},
    };
    MechanismFiles files;
    for (const Row& row : rows) {
        const QString file = files.write("m.xml", "<mechanism>" + row.drivers + "</mechanism>");
        mechanism_t m;
        CapturedStreams streams;
        EXPECT_FALSE(ofFile(file, m, files.installDirs())) << row.name;
        EXPECT_EQ(streams.err.str(), row.message) << row.name;
        EXPECT_EQ(streams.log.str(), "") << row.name;
        EXPECT_EQ(namesOf(m), row.kept) << row.name;
        EXPECT_EQ(m.drivers.size(), row.kept.size()) << row.name;
    }
}

TEST(Reader, UnreadableFileFailsButAnyReadableFileWithoutDriversSucceeds) {
    MechanismFiles files;
    for (const QString& unreadable : {files.path("dir/missing.xml"), files.path("")}) {
        mechanism_t m;
        CapturedStreams streams;
        EXPECT_FALSE(ofFile(unreadable, m, files.installDirs()));
        EXPECT_EQ(streams.log.str(), "Cannot open '" + unreadable.toStdString() + "'.\n");
        EXPECT_EQ(streams.err.str(), "");
    }
    struct Row {
        const char* name;
        QByteArray content;
        trust_t trust;
    };
    const Row rows[] = {
        {"empty file", "", TRUST_NEVER},
        {"truncated file keeps nothing read before the error",
         "<mechanism trust=\"always\"><driver name=\"d\"><writer path=\"w\"/>", TRUST_NEVER},
        {"not XML at all", "mechanism trust=always", TRUST_NEVER},
        {"root with another name", "<other><driver name=\"d\"/></other>", TRUST_NEVER},
        {"mechanism without drivers", "<mechanism trust=\"always\"/>", TRUST_ALWAYS},
    };
    for (const Row& row : rows) {
        mechanism_t m;
        CapturedStreams streams;
        EXPECT_TRUE(ofFile(files.write("odd.xml", row.content), m, files.installDirs()))
            << row.name;
        EXPECT_EQ(m.name, "odd") << row.name;
        EXPECT_EQ(m.trust, row.trust) << row.name;
        EXPECT_TRUE(m.drivers.empty()) << row.name;
        EXPECT_TRUE(m.driverNames.empty()) << row.name;
        EXPECT_EQ(streams.err.str() + streams.log.str(), "") << row.name;
    }
}

TEST(Reader, UnknownVocabularyAndMissingInstallDirThrow) {
    const QByteArray tools = "<writer path=\"w\"/><prover path=\"p\"/><reader path=\"r\"/>";
    struct Row {
        const char* name;
        QByteArray content;
    };
    const Row rows[] = {
        {"trust in capitals", "<mechanism trust=\"Never\"/>"},
        {"unknown group", "<mechanism><driver group=\"some\">" + tools + "</driver></mechanism>"},
        {"expand of the second definition",
         "<mechanism><definition name=\"a\"/><definition name=\"b\"/><driver>"
         "<writer path=\"w\"/><prover path=\"p\"><expand name=\"b\"/></prover>"
         "<reader path=\"r\"/></driver></mechanism>"},
        {"expand of an unknown name in a reader",
         "<mechanism><driver><writer path=\"w\"/><prover path=\"p\"/>"
         "<reader path=\"r\"><expand name=\"zz\"/></reader></driver></mechanism>"},
    };
    MechanismFiles files;
    for (const Row& row : rows) {
        mechanism_t m;
        const QString file = files.write("m.xml", row.content);
        try {
            ofFile(file, m, files.installDirs());
            ADD_FAILURE() << row.name << ": no exception";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "map::at") << row.name;
        }
    }
    mechanism_t m;
    const QString file =
        files.write("m.xml", "<mechanism><driver>" + tools + "</driver></mechanism>");
    EXPECT_THROW(ofFile(file, m, {files.path("no-such-dir").toStdString()}), fs::filesystem_error);
}

TEST(ResourceOverride, ReaderLocatesToolsThroughResourcesAndFallsBackToPath) {
    MechanismFiles files;
    const QString resources = files.write(
        "res", "ZDR*Proof*writerTool: " + QByteArray::fromStdString(files.tool("w")) + "/\n" +
                   "ZDR*Proof*proverTool: " + QByteArray::fromStdString(files.tool("p")) + "\n");
    init_resource_manager();
    load_resources(resources.toUtf8().constData(), nullptr, nullptr);
    const QString file = files.write(
        "m.xml", "<mechanism><driver>"
                 "<writer name=\"W\" path=\"nowhere\" resource=\"ZDR*Other*writerTool\"/>"
                 "<prover name=\"P\" resource=\"proverTool\"/>"
                 "<reader name=\"R\" path=\"r\" resource=\"ZDR*Proof*unknown\"/>"
                 "</driver></mechanism>");
    mechanism_t m;
    CapturedStreams streams;
    ASSERT_TRUE(ofFile(file, m, files.installDirs())) << streams.err.str();
    const driver_t& d = m.drivers.at(0);
    EXPECT_EQ(d.writer.path.string(), files.tool("w"));
    EXPECT_EQ(d.writer.default_path, "nowhere");
    EXPECT_EQ(d.writer.resource, "ZDR*Other*writerTool");
    EXPECT_EQ(d.prover.path.string(), files.tool("p"));
    EXPECT_EQ(d.reader.path.string(), files.tool("r"));
}
