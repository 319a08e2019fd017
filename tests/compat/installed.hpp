// SPDX-License-Identifier: MIT
// The adapters installed in the throwaway root, and commands run in it.
#pragma once

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "base/program.hpp"
#include "compat/support/files.hpp"
#include "compat/support/processes.hpp"

namespace compat {

struct Outcome {
    int status = 0; // 128 + signal when killed
    std::string output;
};

inline Outcome sh(const std::string &command) {
    using namespace hostadm::base;
    const Answer answer = run_and_listen({.words = {"/bin/sh", "-c", command}}, Errors::with_output);
    return {answer.ending.signal != 0 ? 128 + answer.ending.signal : answer.ending.exit_status,
            answer.output};
}

inline void write_text(const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
}

inline std::string text_of(const std::string &path) {
    return read_file(path).value_or("(no file)");
}

// A command that must succeed for the test to make sense.
inline void must(const std::string &command) {
    const Outcome outcome = sh(command);
    if (outcome.status != 0)
        throw std::runtime_error(command + ": " + outcome.output);
}

inline bool eventually(const auto &condition) {
    for (int tries = 0; tries < 1000; ++tries) {
        if (condition())
            return true;
        usleep(5000);
    }
    return false;
}

} // namespace compat

// For main: installs the component and runs the tests. Refuses to write outside a throwaway root, whose /run
// is a fresh one without the marks of a booted system.
inline int run_installed_tests(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (compat::sh("test \"$(stat -f -c %T /)\" = overlayfs").status != 0) {
        std::fputs("run this with in-sandbox: it installs into /usr\n", stderr);
        return 2;
    }
    compat::must(CMAKE_PROGRAM " --install " BUILD_DIRECTORY " --component compat");
    // Whatever servers this machine has, the tests bring their own.
    compat::must("rm -f /usr/bin/ganesha.nfsd /usr/sbin/exportfs /usr/sbin/rpc.nfsd /usr/sbin/rpc.mountd");
    return RUN_ALL_TESTS();
}
