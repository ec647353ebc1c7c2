// Work selection and job building: which POs a driver takes, and the writer and
// prover/reader jobs that carry them.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <QDir>
#include <QFileInfo>

namespace {

const QString FILE_PLACEHOLDER = QStringLiteral("${file}");

// The number of writer jobs a selection gives, so that a driver of many thousand jobs
// builds its job list in place instead of copying it while it grows.
std::size_t jobCount(mechanism::group_t group, const ProofDirector::selection_t& selection) {
    std::size_t count = 0;
    for (const auto& addresses : selection)
        count += group == mechanism::GROUP_NONE ? addresses.size() : !addresses.empty();
    return group == mechanism::GROUP_FULL ? 1 : count;
}

} // namespace

void ProofDirector::selectForDriver(selection_t& selection) {
    if (poSelector.isEmpty()) {
        for (unsigned long long g = 0; g < poTable.size(); ++g) {
            std::vector<po_address_t> group;
            const std::vector<po_data_t>& goals = poTable[g].second;
            for (unsigned long long p = 0; p < goals.size(); ++p)
                if (goals[p].drivers.contains(driver.name))
                    group.emplace_back(g, p);
            selection.push_back(std::move(group));
        }
        return;
    }
    for (unsigned long long g = 0; g < poTable.size(); ++g) {
        const QStringList parts = poSelector.split(QLatin1Char('.'));
        if (parts.first() != QString::fromStdString(poTable[g].first))
            continue;
        const unsigned long long number = parts.value(1).toULongLong();
        selection.push_back({po_address_t(g, number - 1)});
        return;
    }
}

void ProofDirector::produceWriterData(const QString& directory, const QString& pogFile,
                                      const selection_t& selection) {
    // The file name of the PO file less its extension, in every secondary file name.
    const QString base = QFileInfo(pogFile).completeBaseName();
    const QString mechanismName = QString::fromStdString(mechanism.name);
    const QDir folder(directory);
    std::vector<writer_data_t> jobs;
    jobs.reserve(jobCount(driver.group, selection));
    const auto finish = [&](writer_data_t& job) {
        job.cmd = driver.writer.path;
        job.args << QStringLiteral("-i") << pogFile << QStringLiteral("-o") << job.po2filename;
        if (!poSelector.isEmpty())
            job.args << QStringLiteral("-m");
        addParametersBits(job.args, driver.writer);
        jobs.push_back(std::move(job));
    };
    const auto addAddress = [](writer_data_t& job, unsigned long long group,
                               const po_address_t& address) {
        job.args << QStringLiteral("-a") << QString::number(group)
                 << QString::number(address.second);
        job.positions.push_back(address);
    };
    switch (driver.group) {
    case mechanism::GROUP_NONE:
        for (const auto& group : selection) {
            for (const po_address_t& address : group) {
                writer_data_t job;
                job.po2filename = folder.filePath(
                    QStringLiteral("%1_%2_%3_%4_%5.%6")
                        .arg(base, mechanismName, driver.name, QString::number(address.first),
                             QString::number(address.second), driver.ext));
                addAddress(job, address.first, address);
                finish(job);
            }
        }
        break;
    case mechanism::GROUP_RELATED: {
        uint32_t k = 0;
        for (const auto& group : selection) {
            if (!group.empty()) {
                writer_data_t job;
                job.po2filename = folder.filePath(
                    QStringLiteral("%1_%2_%3_%4.%5")
                        .arg(base, mechanismName, driver.name, QString::number(k), driver.ext));
                // The position in the selection is written, not the group index.
                for (const po_address_t& address : group)
                    addAddress(job, k, address);
                finish(job);
            }
            ++k;
        }
        break;
    }
    case mechanism::GROUP_FULL: {
        writer_data_t job;
        job.po2filename = folder.filePath(
            QStringLiteral("%1_%2_%3.%4").arg(base, mechanismName, driver.name, driver.ext));
        for (const auto& group : selection)
            for (const po_address_t& address : group)
                addAddress(job, address.first, address);
        finish(job);
        break;
    }
    }
    std::lock_guard<std::mutex> lock(statusMutex);
    writerJobs.swap(jobs);
}

void ProofDirector::produceProverData() {
    proverJobs.clear();
    proverJobs.reserve(writerJobs.size());
    for (const writer_data_t& writerJob : writerJobs) {
        prover_data_t job;
        for (const mechanism::param_t& param : driver.prover.params)
            append_param(param, job.argsp, writerJob.po2filename);
        for (const mechanism::param_t& param : driver.reader.params)
            append_param(param, job.argsr, writerJob.po2filename);
        job.cmdp = driver.prover.path;
        job.cmdr = driver.reader.path;
        job.inpath = writerJob.po2filename;
        job.addresses = writerJob.positions;
        proverJobs.push_back(std::move(job));
    }
}

void addParametersBits(QStringList& args, mechanism::tool_t tool) {
    for (const mechanism::param_t& param : tool.params) {
        if (param.name.isEmpty())
            args << param.value;
        else if (param.value.isEmpty())
            args << param.name;
        else if (param.separator == QLatin1String(" "))
            args << param.name << param.value;
        else
            args << param.name + param.separator + param.value;
    }
}

void append_param(const mechanism::param_t& param, QStringList& args, const QString& file) {
    QString name = param.name;
    QString value = param.value;
    if (!name.isNull())
        name.replace(FILE_PLACEHOLDER, file);
    if (!value.isNull())
        value.replace(FILE_PLACEHOLDER, file);
    if (!name.isNull() && !value.isNull() && !param.separator.trimmed().isEmpty()) {
        args << name + param.separator + value;
        return;
    }
    if (!name.isNull())
        args << name;
    if (!value.isNull())
        args << value;
}
