#include "common/faketools.h"

#include "common/testutil.h"

namespace faketools {

ToolSet writeTools(const QString& dir) {
    ToolSet tools{dir};
    testutil::writeScript(tools.writer(), R"(log="$(dirname "$0")/writer.log"
echo "$@" >> "$log"
out=""
pairs=""
while [ $# -gt 0 ]; do
  case "$1" in
    -a) pairs="$pairs$2 $3
"; shift 3;;
    -o) out="$2"; shift 2;;
    -i) shift 2;;
    *) shift;;
  esac
done
printf '%s' "$pairs" > "$out"
)");
    testutil::writeScript(tools.prover(),
                          R"(if [ $# -gt 0 ] && [ -f "$1" ]; then cat "$1"; else cat; fi
)");
    testutil::writeScript(tools.reader(), R"(dir=$(dirname "$0")
while read g p; do
  a=$(grep "^$g $p " "$dir/answers" 2>/dev/null | head -n 1 | cut -d' ' -f3-)
  [ -n "$a" ] || a=$(cat "$dir/default_answer" 2>/dev/null || echo Proved)
  echo "$a"
done
)");
    return tools;
}

void setAnswers(const ToolSet& tools, const QByteArray& answers) {
    testutil::writeFile(tools.dir + "/answers", answers);
}

void setDefaultAnswer(const ToolSet& tools, const QByteArray& answer) {
    testutil::writeFile(tools.dir + "/default_answer", answer + "\n");
}

QByteArray mechanismXml(const QString& trust, const std::vector<DriverSpec>& drivers) {
    QString xml = QStringLiteral("<mechanism trust=\"%1\">\n").arg(trust);
    for (const DriverSpec& d : drivers) {
        const QString fileParam =
            d.input == "file" ? QStringLiteral("<param value=\"${file}\"/>") : QString();
        xml += QStringLiteral("  <driver name=\"%1\" group=\"%2\"%8>\n"
                              "    <writer name=\"w\" path=\"%3\"/>\n"
                              "    <prover name=\"p\" path=\"%4\" input=\"%5\">%6</prover>\n"
                              "    <reader name=\"r\" path=\"%7\"/>\n"
                              "  </driver>\n")
                   .arg(d.name, d.group, d.writer, d.prover, d.input, fileParam, d.reader,
                        d.fast ? QStringLiteral(" fast=\"true\"") : QString());
    }
    xml += "</mechanism>\n";
    return xml.toUtf8();
}

QByteArray posXml(const QString& mechanism, const std::vector<GroupSpec>& groups) {
    QString xml =
        QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Proof_Obligations>\n");
    for (const GroupSpec& group : groups) {
        xml += QStringLiteral("  <Proof_Obligation>\n    <Tag>%1</Tag>\n").arg(group.first);
        for (const GoalSpec& goal : group.second) {
            xml += QStringLiteral("    <Simple_Goal status=\"%1\">\n"
                                  "      <Proof_State proofState=\"%2\"/>\n")
                       .arg(goal.status, goal.proofState);
            if (goal.hasMechanism) {
                xml += QStringLiteral("      <Mechanism name=\"%1\" status=\"%2\">\n")
                           .arg(mechanism, goal.mechanismStatus);
                for (const auto& d : goal.drivers)
                    xml += QStringLiteral("        <Driver name=\"%1\" status=\"%2\"/>\n")
                               .arg(d.first, d.second);
                xml += "      </Mechanism>\n";
            }
            xml += "    </Simple_Goal>\n";
        }
        xml += "  </Proof_Obligation>\n";
    }
    xml += "</Proof_Obligations>\n";
    return xml.toUtf8();
}

} // namespace faketools
