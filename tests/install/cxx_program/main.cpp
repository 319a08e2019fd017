// SPDX-License-Identifier: MIT
// A program of somebody else, in C++.
#include <cstdlib>
#include <hostadm.h>
#include <hostadm/platform.h>
#include <hostadm/sandbox.hpp>
#include <hostadm/table_edit.hpp>
#include <iostream>
#include <string>

int main() {
    char *text = nullptr;
    if (sprintf_alloc(&text, "%s", "x") < 0 || std::string(text) != "x")
        return 1;
    std::free(text);
    char upper[] = "abc";
    if (std::string(sysv_strupr(upper)) != "ABC")
        return 2;
    hostadm::sandbox::Options options;
    options.work = [] { return 7; };
    try {
        if (hostadm::sandbox::run(options).exit_status != 7)
            return 3;
    } catch (const hostadm::sandbox::Error &error) {
        std::cout << error.what() << '\n';
        return error.kind() == hostadm::sandbox::Error::Kind::unavailable ? 0 : 4;
    }
    return 0;
}
