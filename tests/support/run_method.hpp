// SPDX-License-Identifier: MIT
// Runs `hostadm` as an administrator would, inside a throwaway root.
#pragma once

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace tests {

struct Outcome {
    int status = -1;    // exit status
    std::string output; // standard output and error, in the order written
};

// `arguments` as typed in a shell behind "hostadm".
inline Outcome hostadm(const std::string &arguments) {
    Outcome run;
    std::FILE *stream = popen((HOSTADM_COMMAND " " + arguments + " 2>&1 </dev/null").c_str(), "r");
    if (stream == nullptr)
        return run;
    char buffer[4096];
    for (std::size_t size; (size = std::fread(buffer, 1, sizeof buffer, stream)) > 0;)
        run.output.append(buffer, size);
    const int status = pclose(stream);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace tests
