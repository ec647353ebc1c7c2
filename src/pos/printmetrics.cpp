#include "pos/printmetrics.h"

#include "pos/pos.h"

#include <iostream>

void print_file_not_readable(const std::string& path, bool xml) {
    // No blank between "Error" and "File": other programs match the line as it is.
    std::cout << (xml ? "<error>" : "Error") << "File not readable " << path
              << (xml ? "</error>" : "") << std::endl;
}

void print_metrics(const std::string& path, bool xml, const std::string& name) {
    // Each item has a tagged form for -x and a plain form; either may be empty.
    const auto form = [xml](const char* tagged, const char* plain) { return xml ? tagged : plain; };
    std::ostream& out = std::cout;

    // A failure leaves the counters at zero, and the report still follows: the front end
    // relies on it always closing the output.
    pos::metrics_t m;
    if (!pos::getMetrics(path, m))
        print_file_not_readable(path, xml);
    out << form("", "End of proof") << std::endl;
    out << form("<proofResult>\n", "") << std::endl;
    out << form("<total>", "") << "TOTAL for " << name << "\t Proved " << m.proved
        << "\t Proved externally " << m.provedExternally << "\t Unreliably proved "
        << m.unreliablyProved << "\t Disproved " << m.disproved << "\t Unproved " << m.unproved
        << form("</total>", "") << std::endl;
    if (xml)
        out << "</proofResult>\n</proof>\n" << std::flush;
}
