// SPDX-License-Identifier: MIT
//
// Stand-ins for commands, inside a throwaway root (in-sandbox):
//
//     void SetUp() override {
//         standin::reset();
//         standin::place("/usr/sbin/share");                                     // silent, exit status 0
//         standin::place("/usr/sbin/mount", {.error = "no such device\n", .status = 32});
//         standin::place("/usr/lib/nfs/nfsd", {.stay = true});                   // a daemon: once started,
//                                                                                it
//         standin::start("/usr/lib/nfs/nfsd", "-a 16");                          // runs until the root goes
//     }
//     ...
//     EXPECT_EQ(standin::lines(), std::vector<std::string>{"/usr/sbin/share -F nfs -o rw /export"});
//
// A stand-in writes down each call before it answers. Placing one replaces what stands at the path, and makes
// the directories above it. Everything here throws std::runtime_error outside a throwaway root.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace standin {

struct Answer {
    std::string output = {}; // to standard output, then
    std::string error = {};  // to standard error, then
    int status = 0;          // the exit status
    bool stay = false;       // instead of ending, let go of standard input, output and error and run on
    std::string script = {}; // not empty: run this with sh instead; $0, $1, ... are the call's
};

struct Call {
    std::string path; // of the stand-in, links resolved
    int pid = 0;
    std::vector<std::string> arguments; // from argument 0 on
    std::map<std::string, std::string> environment;
    std::map<int, std::string> descriptors; // open ones, and what they lead to as /proc/PID/fd tells it
    std::string directory;                  // working directory
};

// Puts a stand-in at an absolute path.
void place(const std::string &path, const Answer &answer = {});
// Changes what a stand-in answers: to every call, or to its
// call number N only (from 1, counted since the last reset).
void answer(const std::string &path, const Answer &answer);
void answer_call(const std::string &path, int number, const Answer &answer);

// Starts one in the background, and returns when its call has been written down.
void start(const std::string &path, const std::string &arguments = "");
// Waits until there are so many calls of this path; throws after ten seconds.
void wait_for_calls(const std::string &path, std::size_t count);

// The calls so far, in order, of all stand-ins or of one.
std::vector<Call> calls();
std::vector<Call> calls(const std::string &path);
// The same, each as the stand-in's path and its arguments, joined by blanks.
std::vector<std::string> lines();

// Forgets all calls and answers; stand-ins in place stay there and answer with silence.
void reset();

} // namespace standin
