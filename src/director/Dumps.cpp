// Diagnostic dumps of the director and its records.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <QTextStream>

using director::utf8;

std::ostream& operator<<(std::ostream& os, const ProofDirector& director) {
    os << "pos: " << utf8(director.posPath) << std::endl;
    os << "pog: " << utf8(director.pogPath) << std::endl;
    os << "dir: " << utf8(director.tempDir) << std::endl;
    os << "loaded: " << director.loaded << std::endl;
    os << "mechanism:" << std::endl << director.mechanism;
    os << "concurrency:" << director.concurrency << std::endl;
    return os;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::writer_data_t& job) {
    os << "cmd: " << job.cmd.string() << std::endl;
    os << "args: " << utf8(job.args.join(QLatin1Char(' '))) << std::endl;
    os << "po2filename: " << utf8(job.po2filename) << std::endl;
    os << "positions: ";
    for (const auto& address : job.positions)
        os << "{" << address.first << ", " << address.second << "}";
    return os << std::endl;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::prover_data_t& job) {
    os << "cmdp: " << job.cmdp.string() << std::endl;
    os << "argsp: " << utf8(job.argsp.join(QLatin1Char(' '))) << std::endl;
    os << "cmdr:" << job.cmdr.string() << std::endl;
    // The prover's arguments again, not the reader's: other tools read this dump as is.
    os << "argsr:" << utf8(job.argsp.join(QLatin1Char(' '))) << std::endl;
    os << "inpath:" << utf8(job.inpath) << std::endl;
    os << "po addresses:";
    for (const auto& address : job.addresses)
        os << "\t" << address.first << "\t" << address.second;
    return os << std::endl;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::po_data_t& po) {
    QString elementText;
    QTextStream stream(&elementText);
    po.element.save(stream, 0);
    return os << "{" << utf8(elementText) << ", " << po.status << ", {"
              << utf8(po.drivers.join(QLatin1Char(' '))) << "}}";
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::po_table_t& table) {
    for (const auto& group : table) {
        os << group.first << std::endl;
        for (const ProofDirector::po_data_t& po : group.second)
            os << po << std::endl;
    }
    return os;
}
