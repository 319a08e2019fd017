// SPDX-License-Identifier: MIT
//
// Writing a method in C++: describe it once, and the framework checks its
// arguments, prints its help and its manual page (`hostadm generate PREFIX/share`
// writes the pages anew), lets the shell complete its arguments, and hands its results back.
//
//     #include <hostadm.h>
//     #include <hostadm/method.hpp>
//
//     using namespace hostadm::method;
//
//     const Description description{
//         .name = "filesystem/unmount",
//         .purpose = "unmount a file system, now, at boot, or both",
//         .arguments = {{.name = "mountpt", .kind = Kind::path, .purpose = "mount point", .required = true}},
//     };
//
//     int work(Call &call) {
//         return unmount_filesystem(call.get("mountpt").c_str(), nullptr, nullptr, call.method().c_str());
//     }
//
//     int main(int argc, char **argv) { return run(argc, argv, description, work); }
//
// Build it, and put it beside the others, where `hostadm list` shows it at once. With hostadm in PREFIX:
//
//     c++ -std=c++20 unmount.cpp -o unmount $(pkg-config --cflags --libs hostadm-method) -Wl,-rpath,PREFIX/lib
//     install -D unmount PREFIX/libexec/hostadm/methods/filesystem/unmount
//
// or with CMake:
//
//     find_package(hostadm REQUIRED)
//     target_link_libraries(unmount PRIVATE hostadm::method hostadm::hostadm)
//
// Where PREFIX is not /usr or /usr/local, PKG_CONFIG_PATH=PREFIX/lib/pkgconfig or CMAKE_PREFIX_PATH=PREFIX finds
// it.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hostadm::method {

// What an argument's value must look like. Every kind but `text` refuses what the shell would take apart.
enum class Kind {
    host,     // a host name: letters, digits, "-", "_" and ".", at most 255 characters
    hosts,    // several, separated by blanks or commas
    address,  // an IPv4 address in dotted-decimal form
    ethernet, // an Ethernet address in any usual spelling
    path,     // an absolute path without blanks or shell metacharacters
    device,   // a device, "-", or HOST:/PATH: what a mount table names
    options,  // a list of options, such as rw=client1,anon=0
    release,  // a release number, such as 2.5 or 4.1.3
    word,     // one word: letters, digits and + - _ . : , @ %
    number,   // a decimal number, not negative
    size,     // a number of bytes, with k, m or g behind it if wanted
    choice,   // one of the argument's choices
    yes_no,   // "yes" or "no"
    text,     // anything on one line
    words     // several words as of `word`, with / and = too, and blanks between them: arguments of a program
};

struct Argument {
    std::string name;
    Kind kind = Kind::word;
    std::string purpose = {};
    bool required = false;
    std::string default_value = {}; // given to the method when the argument is absent
    std::vector<std::string> choices = {};
};

// A result of the method, or a column of its rows.
struct Field {
    std::string name;
    std::string purpose = {};
    bool required = false; // an output without which the run has failed
};

// Where a shell finds values to complete an argument with: in a column of the rows of a method that changes
// nothing. What was typed before narrows them: the method gets the arguments that it takes too, and of its rows
// those count that agree with the others, if there are such.
struct Source {
    std::string argument;
    std::string method; // CLASS/NAME
    std::string column;
};

struct Description {
    std::string name; // CLASS/NAME
    std::string purpose = {};
    std::vector<Argument> arguments = {};
    std::vector<Field> outputs = {};
    std::vector<Field> columns = {};
    // What it touches, for `hostadm help` to tell and for a preview to go by. "NAME=" stands for the value of the
    // argument NAME.
    std::vector<std::string> edits = {};  // files and directories that it changes
    std::vector<std::string> starts = {}; // programs that it leaves running
    std::vector<std::string> shares = {}; // directories that it shares or withdraws
    std::vector<Source> values = {};      // one argument may have several
};

// The code of an error that a method records in its own words; it is no entry of the message table.
inline constexpr int own_error = 100;

// One run of a method.
class Call {
public:
    explicit Call(const Description &description) : description_(description) {}

    // The method's name without its class: what the library's functions want as method name.
    std::string method() const;
    // An argument's value, or its default, or the empty string.
    std::string get(std::string_view name) const;
    bool given(std::string_view name) const;

    // Returns an output. Throws what `run` records when it cannot be returned: a name begins with a letter or
    // "_" and goes on with letters, digits, "_", "-" and ".".
    void set(std::string_view name, std::string_view value);
    void row(std::initializer_list<std::pair<std::string_view, std::string_view>> fields);
    void row(const std::vector<std::pair<std::string, std::string>> &fields);

    // Records an error "METHOD: TEXT" and returns 1, to be returned by the method.
    int fail(std::string_view text, int code = own_error) const;
    // Refuses arguments that do not fit together, before anything was done: the run counts as invalid (exit
    // status 2) like one whose arguments were not accepted. Returns 1, to be returned by the method.
    int refuse(std::string_view text) const;
    // Says on standard error what is being done, if that is a terminal.
    void progress(std::string_view text) const;
    // Marks that something is left half done (ADM_DIRTY) and says what, in a line of its own.
    void left_undone(std::string_view text) const;

private:
    const Description &description_;
};

// For a method that may return rows by the thousand: they are handed
// over many at a time, the last of them when this goes out of scope.
class ManyRows {
public:
    ManyRows() = default;
    ~ManyRows();
    ManyRows(const ManyRows &) = delete;
    ManyRows &operator=(const ManyRows &) = delete;
    void add(std::initializer_list<std::pair<std::string_view, std::string_view>> fields);

private:
    std::string lines_;
};

// The whole of a method's main(): answers --describe and --help, or checks the arguments and runs the work.
// The work returns 0 when done; any other value is a failure that has been recorded.
int run(int argc, char **argv, const Description &description, const std::function<int(Call &)> &work);

} // namespace hostadm::method
