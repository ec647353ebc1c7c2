// The client of make's jobserver: finding it, taking and giving back job slots.

#include "director/Jobserver.h"
#include "director/ProofDirector_p.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace director {

namespace {

// Where MAKEFLAGS says the jobserver is.
struct jobserver_auth_t {
    enum kind_t { NONE, FIFO, DESCRIPTORS } kind = NONE;
    std::string fifo; // FIFO: the named pipe's path
    int readFd = -1;  // DESCRIPTORS: the inherited ends
    int writeFd = -1;
};

// MAKEFLAGS words; make writes a blank inside a value as "\ ".
std::vector<std::string> wordsOf(const char* text) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == ' ' || *c == '\t') {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
            continue;
        }
        if (*c == '\\' && c[1] != '\0')
            ++c;
        word += *c;
        inWord = true;
    }
    if (inWord)
        words.push_back(word);
    return words;
}

bool descriptorNumber(const std::string& text, int& number) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    number = std::atoi(text.c_str());
    return true;
}

jobserver_auth_t authOfValue(const std::string& value) {
    jobserver_auth_t auth;
    if (value.rfind("fifo:", 0) == 0 && value.size() > 5) {
        auth.kind = jobserver_auth_t::FIFO;
        auth.fifo = value.substr(5);
        return auth;
    }
    const std::size_t comma = value.find(',');
    if (comma != std::string::npos && descriptorNumber(value.substr(0, comma), auth.readFd) &&
        descriptorNumber(value.substr(comma + 1), auth.writeFd))
        auth.kind = jobserver_auth_t::DESCRIPTORS;
    return auth;
}

std::string errnoText() {
    return std::strerror(errno);
}

// The last "--jobserver-auth=" (or older "--jobserver-fds=") word names the jobserver; a
// variable definition in MAKEFLAGS is one word that starts with its name.
jobserver_auth_t jobserverOfMakeflags(const char* makeflags) {
    std::string value;
    for (const std::string& word : wordsOf(makeflags == nullptr ? "" : makeflags)) {
        for (const char* option : {"--jobserver-auth=", "--jobserver-fds="}) {
            if (word.rfind(option, 0) == 0)
                value = word.substr(std::strlen(option));
        }
    }
    return authOfValue(value);
}

} // namespace

Jobserver::Jobserver(const char* makeflags) {
    const jobserver_auth_t auth = jobserverOfMakeflags(makeflags);
    if (auth.kind == jobserver_auth_t::NONE) {
        state = "no jobserver in MAKEFLAGS: up to -c jobs at once";
        return;
    }
    const std::string name = auth.kind == jobserver_auth_t::FIFO
                                 ? "fifo:" + auth.fifo
                                 : std::to_string(auth.readFd) + "," + std::to_string(auth.writeFd);
    const bool opened = auth.kind == jobserver_auth_t::FIFO
                            ? openFifo(auth.fifo)
                            : openDescriptors(auth.readFd, auth.writeFd);
    if (opened)
        wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (opened && wakeFd < 0) {
        state = "cannot wait for job slots: " + errnoText();
        close(fd);
        fd = -1;
    }
    state = usable()
                ? "jobserver " + name + ": each job waits for a slot, up to -c at once"
                : "jobserver " + name + " cannot be used (" + state + "): up to -c jobs at once";
}

Jobserver::~Jobserver() {
    if (!usable())
        return;
    for (const char byte : held)
        (void)!write(fd, &byte, 1);
    close(fd);
    close(wakeFd);
}

// Our own open file description: make's own one is shared by every process of the build,
// and its blocking mode is not ours to change.
bool Jobserver::openFifo(const std::string& path) {
    fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) != 0 || !S_ISFIFO(info.st_mode)) {
        state = fd < 0 ? errnoText() : "not a named pipe";
        if (fd >= 0)
            close(fd);
        fd = -1;
        return false;
    }
    return true;
}

// Both numbers must be the two ends of one pipe: in a recipe not marked recursive they
// are closed, or already reused for something else.
bool Jobserver::openDescriptors(int readEnd, int writeEnd) {
    struct stat readInfo, writeInfo;
    const int readMode = fcntl(readEnd, F_GETFL), writeMode = fcntl(writeEnd, F_GETFL);
    if (readMode < 0 || writeMode < 0 || fstat(readEnd, &readInfo) != 0 ||
        fstat(writeEnd, &writeInfo) != 0) {
        state = "descriptor not open";
        return false;
    }
    if (!S_ISFIFO(readInfo.st_mode) || readInfo.st_ino != writeInfo.st_ino ||
        readInfo.st_dev != writeInfo.st_dev || (readMode & O_ACCMODE) == O_WRONLY ||
        (writeMode & O_ACCMODE) == O_RDONLY) {
        state = "not the two ends of one pipe";
        return false;
    }
    if (!openFifo("/proc/self/fd/" + std::to_string(readEnd)))
        return false;
    // The tools povrun starts run in povrun's slots; they must not take make's tokens.
    fcntl(readEnd, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd, F_SETFD, FD_CLOEXEC);
    return true;
}

void Jobserver::trace() const {
    LogLine() << TRACE_PREFIX << "Job slots: " << state << ".";
}

// Under the lock. False when no token is there now; `failure` then says why the pipe
// cannot be read at all, once.
bool Jobserver::readToken(char& byte, std::string& failure) {
    if (broken)
        return false;
    const ssize_t got = read(fd, &byte, 1);
    if (got == 1)
        return true;
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    broken = true;
    failure = got == 0 ? "end of file" : errnoText();
    return false;
}

// Streams are written after the lock is released: stderr may be a pipe nobody reads, and
// the stop path needs the lock.
bool Jobserver::takeSlot() {
    for (;;) {
        std::string failure;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (implicitFree) {
                implicitFree = false;
                return false;
            }
            char byte;
            if (readToken(byte, failure)) {
                held.push_back(byte);
                return true;
            }
        }
        if (!failure.empty())
            std::cerr << "povrun: cannot read a job slot from make's jobserver (" << failure
                      << "): one job at a time from now on" << std::endl;
        waitForSlot();
    }
}

// Until a token may be in the pipe or the implicit slot was given back; either may be
// taken by someone else first, so the caller looks again.
void Jobserver::waitForSlot() {
    pollfd watched[2] = {{wakeFd, POLLIN, 0}, {fd, POLLIN, 0}};
    bool readable;
    {
        std::lock_guard<std::mutex> lock(mutex);
        readable = !broken;
    }
    if (poll(watched, readable ? 2 : 1, -1) > 0 && (watched[0].revents & POLLIN) != 0) {
        eventfd_t count;
        eventfd_read(wakeFd, &count);
    }
}

void Jobserver::giveBack(bool token) {
    int failure = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!token) {
            implicitFree = true;
            eventfd_write(wakeFd, 1);
            return;
        }
        const char byte = held.back();
        held.pop_back();
        ssize_t written;
        do {
            written = write(fd, &byte, 1);
        } while (written < 0 && errno == EINTR);
        if (written != 1)
            failure = errno;
    }
    if (failure != 0)
        std::cerr << "povrun: cannot give a job slot back to make's jobserver: "
                  << std::strerror(failure) << std::endl;
}

void Jobserver::handBackForExit() {
    if (!usable())
        return;
    mutex.lock(); // never released: the process ends next
    for (const char byte : held) {
        while (write(fd, &byte, 1) < 0 && errno == EINTR) {
        }
    }
    held.clear();
}

JobSlot::JobSlot(Jobserver* server)
    : server(server != nullptr && server->usable() ? server : nullptr) {
    if (this->server != nullptr)
        token = this->server->takeSlot();
}

JobSlot::~JobSlot() {
    if (server != nullptr)
        server->giveBack(token);
}

} // namespace director
