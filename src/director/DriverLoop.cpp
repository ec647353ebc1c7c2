// The driver loop: replay and first play, and the worker threads that run a driver's jobs.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <iostream>

using director::LogLine;
using director::utf8;

void ProofDirector::replay() {
    traceLine("Start loading POS file.");
    if (!reloadPosFile()) {
        traceLine("Loading POS file failed.");
        std::cout << (xml ? "<error>" : "") << "Error " << component << " .pos"
                  << (xml ? "</error>" : "") << std::endl;
        std::cerr << "povrun: " << utf8(loadFailure) << std::endl;
        return;
    }
    traceLine("Loading POS file completed.");
    playDrivers();
}

void ProofDirector::play() {
    traceLine("Start loading POS file.");
    const bool registered = loadPosFile();
    traceLine("Loading POS file completed.");
    if (registered) {
        traceLine("Registering mechanism in POS file.");
        savePosFile();
    } else {
        traceLine("Mechanism already registered in POS file.");
    }
    playDrivers();
}

bool ProofDirector::hasWork() {
    for (const auto& group : poTable)
        for (const po_data_t& po : group.second)
            if (!po.drivers.isEmpty())
                return true;
    return false;
}

void ProofDirector::playDrivers() {
    const uint64_t storedBefore = resultCache != nullptr ? resultCache->flush() : 0;
    for (std::size_t k = 0; k < mechanism.drivers.size(); ++k) {
        driver = mechanism.drivers[k];
        if ((!driverFilter.isEmpty() && driverFilter != driver.name) || (fastOnly && !driver.fast))
            continue;
        const std::string name = utf8(driver.name);
        const auto tracePlaying = [&] {
            if (trace == 1)
                std::clog << director::TRACE_PREFIX << "Playing " << k << "-th driver "
                          << "(" << name << ")" << std::endl;
        };
        tracePlaying();
        std::cout << (xml ? "<proofPass>" : "") << "\tProof driver " << name << ", still "
                  << unprovedCount << " unproved PO" << (xml ? "</proofPass>" : "") << std::endl;
        tracePlaying();
        if (poSelector.isEmpty() && !hasWork()) {
            traceLine("Driver cannot improve proof status.");
            continue;
        }
        traceLine("Driver has proof obligations to process.");
        // Serialised once, before the jobs are built and the first worker starts: no job
        // waits for it, its passing copy of the whole file is gone before thousands of job
        // records take their memory, and a replay with nothing to play never pays for it.
        saver.prepare();
        selection_t selection;
        selectForDriver(selection);
        traceLine("Driver producing writer data");
        produceWriterData(tempDir, pogPath, selection);
        traceLine("Driver producing prover data");
        produceProverData();
        if (observer != nullptr)
            observer->driverStarted(mechanism.name, driver.name, goalCount(), writerJobs.size());
        if (resultCache != nullptr)
            cacheDriverKey = resultCache->driverKey(driver);
        jobsStarted += writerJobs.size();
        operationCount = 0;
        runJobs();
        finishDriver();
    }
    saver.saveNow(false);
    if (resultCache != nullptr)
        cacheStored = resultCache->flush() - storedBefore;
}

void ProofDirector::finishDriver() {
    std::cout << std::endl;
    if (operationCount != 0)
        std::cout << (xml ? "</operation>" : "") << std::endl;
    removeSecondaryFiles();
    // A driver's verdicts are on disk, synced, before the next driver starts.
    saver.saveNow(false);
    if (observer != nullptr)
        observer->driverEnded();
}

std::size_t ProofDirector::goalCount() const {
    std::size_t count = 0;
    for (const writer_data_t& job : writerJobs)
        count += job.positions.size();
    return count;
}

void ProofDirector::runJobs() {
    if (concurrency == 1) {
        for (unsigned long long i = 0; i < writerJobs.size(); ++i) {
            writeEntry(i);
            proveEntry(i);
        }
        return;
    }
    nextJob = 0;
    // A worker beyond the number of jobs would only find the counter at its end; with a
    // huge -c, starting them all would cost seconds and gigabytes for nothing.
    std::vector<std::unique_ptr<std::thread>> workers;
    startWorkers(workers, std::min<std::size_t>(concurrency, writerJobs.size()));
    if (workers.empty())
        writeAndProveJob();
    for (const auto& worker : workers)
        worker->join();
    std::exception_ptr failure;
    {
        std::lock_guard<std::mutex> lock(errorMutex);
        std::swap(failure, workerFailure);
    }
    if (failure)
        std::rethrow_exception(failure);
}

void ProofDirector::startWorkers(std::vector<std::unique_ptr<std::thread>>& workers,
                                 std::size_t wanted) {
    for (std::size_t n = 0; n < wanted; ++n) {
        try {
            workers.push_back(std::make_unique<std::thread>([this] {
                try {
                    writeAndProveJob();
                } catch (...) {
                    std::lock_guard<std::mutex> lock(errorMutex);
                    if (!workerFailure)
                        workerFailure = std::current_exception();
                }
            }));
        } catch (const std::exception&) {
            // Out of threads: the workers already running take every job.
            return;
        }
    }
}

bool ProofDirector::takeJob(std::size_t count, unsigned long long& index,
                            const std::function<void(unsigned long long)>& traceTaken) {
    std::lock_guard<std::mutex> lock(jobMutex);
    if (nextJob == count)
        return false;
    index = nextJob++;
    // Under the lock, so that the trace lines of the workers come out whole.
    if (trace == 1)
        traceTaken(index);
    return true;
}

void ProofDirector::traceThread(const std::thread::id& id, const std::string& what) const {
    LogLine() << director::THREAD_TRACE_PREFIX << "Thread " << id << " " << what;
}

std::thread::id ProofDirector::tracedThreadId() const {
    return trace == 1 ? std::this_thread::get_id() : std::thread::id();
}

void ProofDirector::writeAndProveJob() {
    const std::thread::id id = tracedThreadId();
    const auto traceWrites = [&](unsigned long long i) {
        traceThread(id, "writes entry " + std::to_string(i) + ".");
    };
    unsigned long long i;
    while (takeJob(writerJobs.size(), i, traceWrites)) {
        const director::JobSlot slot(jobserver);
        writeEntry(i);
        if (trace == 1) {
            const prover_data_t& job = proverJobs.at(i);
            traceThread(id, "proves entry (" + job.cmdp.string() + ", " + job.cmdr.string() + ").");
        }
        proveEntry(i);
    }
}
