// SPDX-License-Identifier: MIT
// The one way to fail in here: an exception that says what, where, why and what to do next, with a code of its
// own. A method's page turns it into the method's answer at one place (server/page.hpp).
#pragma once

#include <stdexcept>
#include <string>

namespace hostadm::server {

// The codes of errors that methods record in their own words. Those below 100 are the library's (hostadm.h),
// and 101 to 103 the framework's.
enum class Code {
    general = 100,         // none of those below
    not_root = 110,        // only root may do it
    missing_program = 111, // a command that is needed here is not installed
    busy = 112,            // somebody else is at work on the same thing, or holds a lock
    taken = 113,           // a name, an address or a path belongs to somebody else, or is in use already
    not_found = 114,       // what is spoken of is not there
    unusable = 115,        // it is there, but cannot serve for what is wanted
    table = 116,           // a table cannot be read or edited, or must not be changed so
    system = 117,          // the system refused: no space, no permission, a read-only file system
    no_effect = 118,       // a command said nothing, and yet what it was to do is not so
    incomplete = 119,      // an earlier run was cut off, and what it left is not whole
    interrupted = 120      // a signal ended the work
};

class Failure : public std::runtime_error {
public:
    Failure(Code code, const std::string &text) : std::runtime_error(text), code_(code) {}
    Code code() const { return code_; }

private:
    Code code_;
};

// An argument that is of no use on any server, whatever is there.
class Refusal : public Failure {
public:
    explicit Refusal(const std::string &text) : Failure(Code::general, text) {}
};

// A failure that the library has recorded already.
class Recorded : public Failure {
public:
    Recorded() : Failure(Code::general, "the library has recorded why") {}
};

[[noreturn]] void fail(Code code, const std::string &text);
// With what errno says.
[[noreturn]] void fail_errno(const std::string &what);
[[noreturn]] void refuse(const std::string &text);

// A failed edit of a table in words. `status` is one of the table interface (hostadm/table_edit.hpp), not 0.
std::string edit_failure(const std::string &table, int status);
[[noreturn]] void fail_edit(const std::string &table, int status);
[[noreturn]] void fail_reading(const std::string &table, int status);

} // namespace hostadm::server
