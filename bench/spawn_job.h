#pragma once
// One replay job started the plainest way: posix_spawn, pipes and waitpid, with nothing
// around it. The replay benchmark's baseline is made of these, so the gap between it and
// povrun is what povrun adds to the bare cost of the processes.

#include <string>
#include <vector>

namespace spawnjob {

// Runs `program` with `args` (argv[0] is added) and waits for it; its standard output
// goes to the file `standardOutput` when one is named. True when it exited normally with
// status 0. `peakKib`, when given, receives the child's peak resident set size in KiB.
bool run(const std::string& program, const std::vector<std::string>& args,
         const char* standardOutput = nullptr, long* peakKib = nullptr);

// Runs `prover` with the file `inputPath` as standard input and its standard output piped
// into `reader`; `output` receives all the reader printed. True when both exited normally
// with status 0. Safe to call from several threads at once: every descriptor is opened
// close-on-exec, so no child keeps another job's pipe open.
bool runProverReader(const std::string& prover, const std::string& reader,
                     const std::string& inputPath, std::string& output);

} // namespace spawnjob
