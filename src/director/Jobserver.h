#pragma once
// The job slots of the make that runs povrun, so that `make -jN` over many components
// runs at most N jobs in all, not N per povrun.
//
// make names its jobserver in MAKEFLAGS: "--jobserver-auth=fifo:PATH" (a named pipe) or
// "--jobserver-auth=R,W" (two inherited descriptors of one pipe, open only in recipes
// marked recursive). The pipe holds one byte, a token, per free slot beyond the first.
//
// Who holds which slot:
//   - every child of make owns one slot without a token, the implicit slot; povrun lends
//     it to one job at a time;
//   - every further job runs only while it holds a token read from the pipe; the token
//     is written back, the very byte that was read, as soon as its job ends.
// So a povrun runs at most 1 + (tokens it could read) jobs at once, and -c stays the cap.
// A job gives its token back itself (JobSlot), also when it fails. The stop path ends the
// process without waiting for the jobs, so it writes back what they still hold with
// handBackForExit(); make never loses a slot.
//
// Thread safety: takeSlot() and giveBack() may be called from any number of workers.
// The mutex guards the held tokens and the implicit slot and is held only for a
// non-blocking read or write of one byte; waiting for a slot happens outside it.

#include <mutex>
#include <string>
#include <vector>

namespace director {

class Jobserver {
public:
    // Opens the jobserver that `makeflags` names. Must run before povrun opens any
    // descriptor: the descriptors of a recipe not marked recursive are closed, and their
    // numbers must not be taken for make's by the time they are checked. A jobserver that
    // cannot be used leaves this object unusable(), and povrun runs as without one.
    explicit Jobserver(const char* makeflags);
    // Writes back any token still held (povrun's own one is never destroyed).
    ~Jobserver();
    Jobserver(const Jobserver&) = delete;
    Jobserver& operator=(const Jobserver&) = delete;

    bool usable() const { return fd >= 0; }
    // Writes a director trace line saying which case applied: no jobserver, the one in
    // use, or why it cannot be used.
    void trace() const;

    // Waits until this process may run one more job: the implicit slot when it is free
    // (false), else a token read from make (true). Never returns without a slot.
    bool takeSlot();
    // Gives back a slot takeSlot() gave: `token` as it returned. A token that cannot be
    // written is said on standard error.
    void giveBack(bool token);
    // For the stop path, just before the process ends: writes back every token held,
    // without allocating, and keeps the lock so that no worker takes another one.
    void handBackForExit();

private:
    bool openFifo(const std::string& path);
    bool openDescriptors(int readEnd, int writeEnd);
    bool readToken(char& byte, std::string& failure);
    void waitForSlot();

    int fd = -1;       // our own non-blocking, close-on-exec descriptor of make's pipe
    int wakeFd = -1;   // an eventfd that says "the implicit slot is free"
    std::string state; // which case applied, for the trace
    // Guards held, implicitFree and broken; never held while waiting.
    std::mutex mutex;
    std::vector<char> held; // the tokens read and not yet written back
    bool implicitFree = true;
    bool broken = false; // reading failed: only the implicit slot is used from then on
};

// A slot held by one job from construction to destruction; nothing when `server` is
// null or unusable.
class JobSlot {
public:
    explicit JobSlot(Jobserver* server);
    ~JobSlot();
    JobSlot(const JobSlot&) = delete;
    JobSlot& operator=(const JobSlot&) = delete;

private:
    Jobserver* server;
    bool token = false;
};

} // namespace director
