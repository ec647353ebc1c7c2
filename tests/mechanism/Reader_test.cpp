// Reading mechanism files: definitions, parameter order, attributes, failures; where a
// tool's executable is looked for; the dump.

#include "mechanism/Mechanism.h"
#include "mechanism/Mechanism_p.h"

#include "common/testutil.h"
#include "resource/p_api.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>

using namespace mechanism;
namespace fs = std::filesystem;

// ofFile on `file`, written from `xml`, its folder as the install directory: name, trust,
// result or exception, drivers kept, then "|" and what went to standard error.
static std::string read(mechanism_t& m, const QString& file, const QString& xml) {
    testutil::writeFile(file, xml.toUtf8());
    testing::internal::CaptureStderr();
    std::string result;
    try {
        result = ofFile(file, m, {QFileInfo(file).path().toStdString()}) ? "true" : "false";
    } catch (const std::exception& e) {
        result = e.what();
    }
    result = m.name + " " + std::to_string(m.trust) + " " + result;
    for (const QString& driver : m.driverNames)
        result += " " + driver.toStdString();
    return result + "|" + testing::internal::GetCapturedStderr();
}

// Per driver: name, group, ext, fast, input, timeout, then each tool's parameters, "~" for an
// absent name or value (the director passes an empty value on but leaves an absent one out).
static std::string summary(const mechanism_t& m) {
    const auto text = [](const QString& s) { return s.isNull() ? QString("~") : s; };
    QString out;
    for (const driver_t& d : m.drivers) {
        out += QString::asprintf("\n%s %d %s %d %d %d", qPrintable(d.name), d.group,
                                 qPrintable(d.ext), d.fast, d.prover.input, d.prover.timeout);
        for (const auto* params : {&d.writer.params, &d.prover.params, &d.reader.params}) {
            out += " :";
            for (const param_t& p : *params)
                out += text(p.name) + p.separator + text(p.value) + "|";
        }
    }
    return out.toStdString();
}

TEST(Reader, ReadsQuirksFaithfullyAndStopsAtTheFirstMissingToolOrUnknownName) {
    QTemporaryDir temp; // also the install directory, holding the one tool t
    testutil::writeScript(temp.filePath("t"), "exit 0\n");
    mechanism_t m;
    const std::string outcome = read(m, temp.filePath("m.v2.xml"), R"(<mechanism trust="redundancy">
  <definition name="c"><param name="-v"/><param name="-l" separator="=" value="${timeout}"/></definition>
  <param name="e"><param name="-x" value=""/></param><param name="c"><param name="-shadowed"/></param>
  <driver name="d1" group="related" ext="po3" fast="true"><reader path="t"/>
    <writer path="t"><expand name="e"/><param name="-w" value="1"/><expand name="c"/></writer>
    <prover path="t" input="FILE" timeout="30"><param name="-t" value="T${timeout}s,${timeout}"/>
    <expand name="c"/></prover></driver>
  <driver name="d2" group="full" fast="TRUE"><writer path="t"/><reader path="t"/>
    <prover path="t" input="x" timeout="abc"><param value="${timeout}"/></prover></driver>
  <driver name="d3"><writer path="t"/><prover path="t"><param value="${timeout}"/></prover>
    <reader path="t"><param name="-r" separator=""/></reader></driver></mechanism>)");
    // Params come before expansions; the "param" siblings of the first definition are
    // definitions too, but do not replace one already known.
    // An input word other than the two is read as "file", with a warning.
    const std::string v2 = "povrun: " + temp.filePath("m.v2.xml").toStdString();
    EXPECT_EQ(outcome + summary(m),
              "m.v2 1 true d1 d2 d3|" + v2 +
                  ":6: input \"FILE\" is neither \"stdin\" nor \"file\"; read as \"file\"\n" + v2 +
                  ":9: input \"x\" is neither \"stdin\" nor \"file\"; read as \"file\"\n"
                  "\nd1 1 po3 1 0 30 :-w 1|-x |-v ~|-l=${timeout}| :-t T30s,30|-v ~|-l=30| :"
                  "\nd2 2 po2 0 0 0 : :~ abc| :"
                  "\nd3 0 po2 0 1 -1 : :~ ${timeout}| :-r~|");

    // Driver %1 with its writer, prover and reader at %2, %3 and %4; the prover expands "a".
    const QString driver = "<driver name='d%1'><writer name='W%1' path='%2'/><prover name='P%1' "
                           "path='%3'><expand name='a'/>"
                           "</prover><reader name='R%1' path='%4'/></driver>";
    const QString mech = "<mechanism><definition name='a'/><definition name='b'/>%1</mechanism>";
    const QString good = driver.arg("0", "t", "t", "t");
    // The lines after a missing tool: the path, the install directory, then the current one;
    // then the ways to make it found, with its name.
    const auto searched = [&temp](const std::string& path, const std::string& name) {
        return "povrun: looked for \"" + path + "\" in " + temp.path().toStdString() +
               ", then in the current directory " + fs::current_path().string() +
               "; no resource named\npovrun: to fix it, add resource=\"ZDR*Proof*" + name +
               "\" to the tool and the line \"ZDR*Proof*" + name +
               ": /absolute/path\" to a resource file given with -r, put \"" + path +
               "\" in a folder given with -i, or write an absolute path in path=\"...\"\n";
    };
    const std::string file = temp.filePath("m.xml").toStdString();
    const std::tuple<const char*, QString, std::string> rows[] = {
        // name, file, outcome
        {"reader of the second driver", mech.arg(good + driver.arg("2", "t", "t", "no")),
         "m 0 false d0|Cannot locate tool R2\n" + searched("no", "R2")},
        {"prover of the third driver", mech.arg(good + good + driver.arg("3", "t", "t.sh", "t")),
         "m 0 false d0 d0|Cannot locate prover P3\n" + searched("t.sh", "P3")},
        {"unknown group", mech.arg(good + "<driver group='some'/>"),
         "m 0 " + file + ":1: unknown group \"some\" (map::at); allowed: none, related, full d0|"},
        {"second definition", mech.arg(good).replace("'a'/></p", "'b'/></p"),
         "m 0 " + file + ":1: unknown definition \"b\" (map::at); allowed: a|"},
    };
    for (const auto& [name, xml, outcome] : rows) {
        m = mechanism_t();
        EXPECT_EQ(read(m, temp.filePath("m.xml"), xml), outcome) << name;
    }
}

TEST(ToolLocation, ResourceThenInstallDirsThenCurrentDirWithExeRightAfterEachPlainCandidate) {
    QTemporaryDir temp;
    const fs::path root = fs::canonical(temp.path().toStdString());
    const auto at = [&](const char* relative) { return (root / relative).string(); };
    for (const char* directory : {"d1/b", "d2", "cwd"})
        fs::create_directories(root / directory);
    for (const char* tool :
         {"d1/a.exe", "d2/a", "d2/b", "d2/c.exe", "cwd/c", "d1/g.sh.exe", "cwd/g.sh"})
        testutil::writeScript(QString::fromStdString(at(tool)), "exit 0\n");
    testutil::writeFile(QString::fromStdString(at("d1/a")), "not a program\n");
    testutil::writeFile(temp.filePath("r"), ("ZDR*Proof*x: " + at("d2") + "/../d2//b/\n").c_str());
    init_resource_manager();
    load_resources(temp.filePath("r").toUtf8().constData(), nullptr, nullptr);
    const fs::path savedCwd = fs::current_path();
    fs::current_path(root / "cwd");

    const std::vector<std::string> both = {at("d1"), at("d2")};
    // name, path, resource, install directories, what is found (empty: nothing)
    const std::tuple<const char*, std::string, const char*, decltype(both), std::string> rows[] = {
        {"a non-executable is passed over for the exe", "a", "", both, at("d1/a.exe")},
        {"a directory is skipped", "b", "", both, at("d2/b")},
        {"install dirs come before the current dir", "c", "", both, at("d2/c.exe")},
        {"a path with an extension never gets exe", "g.sh", "", {at("d1")}, at("cwd/g.sh")},
        {"absolute path gets no exe", at("d2/c"), "", both, ""},
        {"cleaned resource, named after the last star", "none", "ZDR*Other*x", both, at("d2/b")},
        {"unknown resource falls back to the path", "b", "ZDR*Proof*zz", both, at("d2/b")},
    };
    for (const auto& [name, given, resource, installDirs, expected] : rows) {
        const QString text = mechanism::computePath(QString::fromStdString(given), resource);
        fs::path path = text.toStdString();
        const bool found = mechanism::checkToolExistence(path, installDirs);
        EXPECT_EQ(found, !expected.empty()) << name;
        EXPECT_EQ(path.string(), found ? expected : text.toStdString()) << name;
    }
    fs::current_path(savedCwd);
}

// Kept on purpose, as other tools read it: the prover's "input" line has only a closing quote,
// and its parameter blocks follow the "size" line with no empty line between; ext, fast and
// names are left out.
TEST(Dump, MechanismWithTwoDriversIsWrittenByteForByte) {
    driver_t first;
    first.writer = {"W", "w", "/tools/w", "ZDR*Proof*w", {}};
    first.prover = {{"P\xc3\xa9", "p", "/p.exe", "", {{"-t", "", "say \"hi\""}}}, 30, INPUT_FILE};
    first.name = "d1";
    std::ostringstream os;
    os << mechanism_t{"x", "mech", TRUST_REDUNDANCY, {first, driver_t()}, {"d1", "d2"}};
    EXPECT_EQ(os.str(),
              testutil::readFile(POVRUN_SOURCE_DIR "/tests/mechanism/two_driver_dump.expected")
                  .toStdString());
}
