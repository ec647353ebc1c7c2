// What the director tells about its jobs besides the protocol: the tools' standard error,
// the goals of a failed job and why it failed, and the records of an observer.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <iostream>

using director::job_report_t;
using director::utf8;

namespace {

// Keeps the blocks of concurrent jobs whole on standard error.
std::mutex toolErrorsMutex;

void sayWhole(const std::string& block) {
    std::lock_guard<std::mutex> lock(toolErrorsMutex);
    std::cerr << block << std::flush;
}

QString commandOf(const std::filesystem::path& program, const QStringList& args) {
    return QString::fromStdString(program.string()) + QLatin1Char(' ') +
           args.join(QLatin1Char(' '));
}

director::tool_end_t endOf(const process::exit_t& run, const QString& command) {
    director::tool_end_t end;
    end.ran = true;
    end.started = run.started;
    end.crashed = run.crashed;
    end.code = run.code;
    end.signal = run.signal;
    end.errors = run.errors;
    end.failure = run.failure;
    end.command = command;
    return end;
}

} // namespace

namespace director {
double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
} // namespace director

// Goals are named as a user would select one: group name, ".", number from 1.
std::string ProofDirector::goalsText(const std::vector<po_address_t>& addresses) const {
    std::string text = "POs";
    for (const po_address_t& address : addresses) {
        const bool known = address.first < poTable.size();
        text += " " + (known ? poTable[address.first].first : std::to_string(address.first)) + "." +
                std::to_string(address.second + 1);
    }
    return text;
}

std::string ProofDirector::toolHeading(const char* role, const std::filesystem::path& tool,
                                       const std::vector<po_address_t>& addresses) const {
    return "povrun: driver " + utf8(driver.name) + ", " + role + " " + tool.string() + ", " +
           goalsText(addresses);
}

void ProofDirector::showToolErrors(const char* role, const std::filesystem::path& tool,
                                   const std::vector<po_address_t>& addresses,
                                   const process::exit_t& run) const {
    std::string block;
    if (!run.started && !run.failure.isEmpty())
        block = toolHeading(role, tool, addresses) + ": " + utf8(run.failure) + "\n";
    if (!run.errors.isEmpty()) {
        block += toolHeading(role, tool, addresses) + ", wrote on standard error:\n" +
                 run.errors.toStdString();
        if (block.back() != '\n')
            block += '\n';
    }
    if (run.errorsDropped > 0)
        block += "[" + std::to_string(run.errorsDropped) + " more bytes]\n";
    if (!block.empty())
        sayWhole(block);
}

void ProofDirector::sayFailedJob(const char* role, const std::filesystem::path& tool,
                                 const std::vector<po_address_t>& addresses,
                                 const process::exit_t& end) const {
    sayWhole(toolHeading(role, tool, addresses) + ": " +
             utf8(director::endOfTool(endOf(end, QString()))) + "\n");
}

void ProofDirector::sayMiscount(const std::vector<po_address_t>& addresses, int lines,
                                const process::pipeline_t* run) const {
    std::string cause = "the reader answered " + std::to_string(lines) + " lines for " +
                        std::to_string(addresses.size()) + " goals";
    if (run != nullptr)
        cause += " (prover " + utf8(director::endOfTool(endOf(run->prover, QString()))) +
                 ", reader " + utf8(director::endOfTool(endOf(run->reader, QString()))) + ")";
    sayWhole("povrun: driver " + utf8(driver.name) + ", " + goalsText(addresses) + ": " + cause +
             "\n");
}

job_report_t* ProofDirector::reportOf(unsigned long long index) {
    std::lock_guard<std::mutex> lock(reportsMutex);
    return &reports[index];
}

void ProofDirector::noteWriter(unsigned long long index, const process::exit_t& writer,
                               double seconds, const QString& failure) {
    const writer_data_t& job = writerJobs.at(index);
    job_report_t& report = *reportOf(index);
    report.writer = endOf(writer, commandOf(job.cmd, job.args));
    report.writerSeconds = seconds;
    if (!failure.isNull())
        report.failures << failure;
}

void ProofDirector::noteProver(job_report_t& report, const process::pipeline_t& run) const {
    report.prover = endOf(run.prover, QString());
    report.reader = endOf(run.reader, QString());
}

director::goal_result_t ProofDirector::unansweredGoal(const po_address_t& address,
                                                      const QString& line) const {
    const pos::status_t status = poTable.at(address.first).second.at(address.second).status;
    return {poTable[address.first].first, address.second + 1, QString(), status, status, line};
}

void ProofDirector::dropReport(job_report_t* report) {
    if (report != nullptr)
        report->failures << QString(); // a null failure: the stop ended the job
}

void ProofDirector::endReport(unsigned long long index, const prover_data_t& job,
                              std::chrono::steady_clock::time_point start, job_report_t* report) {
    if (report == nullptr)
        return;
    job_report_t done;
    {
        std::lock_guard<std::mutex> lock(reportsMutex);
        const auto taken = reports.find(index);
        done = std::move(taken->second);
        reports.erase(taken);
    }
    if (done.failures.contains(QString()))
        return; // stopped: not a job that ended
    done.proverSeconds = director::secondsSince(start);
    done.mechanism = mechanism.name;
    done.driver = driver.name;
    done.secondaryFile = job.inpath;
    done.prover.command = commandOf(job.cmdp, job.argsp);
    done.reader.command = commandOf(job.cmdr, job.argsr);
    if (done.goals.empty()) {
        std::lock_guard<std::mutex> lock(statusMutex);
        for (const po_address_t& address : job.addresses)
            done.goals.push_back(unansweredGoal(address, QString()));
    }
    observer->jobEnded(done);
}
