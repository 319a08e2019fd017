// SPDX-License-Identifier: MIT
//
// Where the command meets the framework: what methods there are, running one, and what came of it; and the
// method's own end of a run, for `hostadm arg`. Methods themselves use hostadm/method.hpp or
// hostadm/framework.h; this header serves the programs that are built with this system.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "hostadm/method.hpp"

namespace hostadm::framework {

// Codes of failures that no method recorded.
inline constexpr int cannot_run = 101;       // unknown, not executable, crashed, or its answer makes no sense
inline constexpr int invalid_argument = 102; // an argument was refused, nothing was done

// Another host could not run a method. What it says itself has the method's own codes.
inline constexpr int host_not_found = 130;     // its name leads to no address
inline constexpr int connection_refused = 131; // nobody listens there
inline constexpr int host_not_reached = 132;   // no connection, or none in time
inline constexpr int host_key_unknown = 133;
inline constexpr int host_key_changed = 134;
inline constexpr int login_refused = 135;
inline constexpr int no_hostadm_there = 136;
inline constexpr int sudo_refused = 137;
inline constexpr int no_answer_in_time = 138;
inline constexpr int answer_cut_off = 139;

using Values = std::vector<std::pair<std::string, std::string>>;

struct Request {
    std::string method; // CLASS/NAME
    Values arguments;
    int time_limit = 0;   // seconds, then a run on this host is cut off; 0: none
    Values settings = {}; // how a preview on another host is wanted

    const std::string *find(std::string_view name) const;
};

// The rows of an answer. A hundred thousand are no rarity, so all their names and values lie in one text,
// each with a NUL behind it.
class Rows {
    // Walks over what a container finds by number.
    template <typename Container> class Iterator {
    public:
        Iterator(const Container &container, std::size_t at) : container_(&container), at_(at) {}
        auto operator*() const { return (*container_)[at_]; }
        Iterator &operator++() {
            ++at_;
            return *this;
        }
        bool operator==(const Iterator &other) const { return at_ == other.at_; }

    private:
        const Container *container_;
        std::size_t at_;
    };

public:
    using Field = std::pair<std::string_view, std::string_view>; // name, value

    // One row, good as long as its rows live and do not grow.
    class Row {
    public:
        Row(const Rows &rows, std::size_t first, std::size_t last)
            : rows_(&rows), first_(first), size_(last - first) {}
        Iterator<Row> begin() const { return {*this, 0}; }
        Iterator<Row> end() const { return {*this, size_}; }
        Field operator[](std::size_t at) const { return rows_->field(first_ + at); }
        std::vector<Field> fields() const;

    private:
        const Rows *rows_;
        std::size_t first_, size_;
    };

    bool empty() const { return first_.empty(); }
    std::size_t size() const { return first_.size(); }
    Iterator<Rows> begin() const { return {*this, 0}; }
    Iterator<Rows> end() const { return {*this, size()}; }
    Row operator[](std::size_t row) const { return {*this, first_[row], end_of(row)}; }

    // So that rows whose lines take so many bytes come without growing pains. What is not needed is not
    // touched.
    void reserve(std::size_t bytes) {
        text_.reserve(bytes);
        fields_.reserve(bytes / 8);
        first_.reserve(bytes / 16);
    }
    // Begins a row; what is added goes into the row that was begun last.
    void begin_row() { first_.push_back(fields_.size()); }
    void add(std::string_view name, std::string_view value);
    void drop_last_row();

    // The number of a row's field, or `none`; by it the field is found again.
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t find(std::size_t row, std::string_view name) const;
    Field field(std::size_t number) const;
    // The value, to be written over in its length.
    char *writable(std::size_t number);

    bool operator==(const Rows &) const = default;

private:
    std::size_t end_of(std::size_t row) const {
        return row + 1 < first_.size() ? first_[row + 1] : fields_.size();
    }

    std::string text_;
    std::vector<std::size_t> fields_; // where each one's name begins; its value follows
    std::vector<std::size_t> first_;  // each row's first field
};

struct ErrorRecord {
    int code = 0;
    std::string text;
    bool operator==(const ErrorRecord &) const = default;
};

struct Answer {
    Values outputs;
    Rows rows;
    std::vector<ErrorRecord> errors;
    bool dirty = false;                   // the last mark said so
    std::vector<std::string> left_undone; // what is left half done, in the method's words
    std::optional<std::string> invalid;   // why an argument was refused
    bool begun = false;
    std::optional<int> ended;
    std::optional<int> outcome;
    std::string reason;
    std::string defect; // the first line that cannot be understood, in words; empty: there is none

    bool half_done() const { return dirty || !left_undone.empty(); }
    const std::string *output(std::string_view name) const;
};

struct Outcome {
    enum class Status { done = 0, failed = 1, invalid = 2 };
    Status status = Status::failed;
    Answer answer;
    // Why the run failed, where the method did not say so itself: it could not be run, it was killed, its
    // answer makes no sense. For an invalid argument: what was wrong and what is accepted.
    std::string reason;
};

// ---- methods ----

// The methods of this installation and of the site as CLASS/NAME, sorted.
std::vector<std::string> list_methods();

// Methods of the site that cannot be reached, since the installation has one of that name: their paths.
std::vector<std::string> hidden_methods();

// Completes the name of a method (NAME or CLASS/NAME, the class given apart or not at all) to CLASS/NAME.
// The second alternative says why that is not possible.
struct Unknown {
    std::string reason;
};
std::variant<std::string, Unknown> find_method(std::string_view method_class, std::string_view name);

// Asks a method for its description.
std::variant<method::Description, std::string> describe(const std::string &name);

// What it does, its arguments, kinds and defaults, its outputs and columns, and what it touches, for a person
// to read. Lines are broken so that they take no more columns than said; 0: they are not.
std::string help_text(const method::Description &description, std::size_t columns = 0);
// The same for a program: the JSON object that the method itself prints when it is started with --describe.
std::string to_text(const method::Description &description);

std::string_view kind_name(method::Kind kind);
// What a value of the argument must be, to be said after "must be".
std::string accepted(const method::Argument &argument);
bool is_accepted(const method::Argument &argument, std::string_view value);
// What an argument, an output or a column may be called.
bool is_name(std::string_view name);

// ---- running one ----

// Runs a method where the host says; the empty host is this one. Only here is it known what a name means
// here.
Outcome perform(std::string_view method_class, std::string_view name, Request request,
                const std::string &host);

// How other hosts are reached, and who hears of it.
struct OtherHosts {
    bool sudo = false;       // become root there by sudo, without a password
    int connect_limit = 30;  // seconds until the command there has begun
    int answer_limit = 0;    // seconds from then on until the answer is whole; 0: none
    std::size_t at_once = 8; // so many hosts are asked beside each other
    // Set: the method is not run but previewed, on other hosts by their own command, and by this where the name of a
    // host means here.
    std::function<Outcome(const Request &)> preview = {};
    // A line that a method there says for people. It holds nothing that steers a terminal.
    std::function<void(const std::string &host, const std::string &line)> say;
    // The outcome on the host of this number, as soon as it is there; once for each.
    std::function<void(std::size_t host, Outcome outcome)> done;
};

// Runs a method, CLASS/NAME or NAME, on hosts given as HOST or USER@HOST. Without a user and without sudo a
// name of this host means here.
void perform_on(const std::vector<std::string> &hosts, const std::string &method, Request request,
                const OtherHosts &how);

// The line by which the far end says that it has begun and now reads the request.
inline constexpr std::string_view serve_greeting = R"({"hostadm": 1, "serves": "requests"})";

// A request as another host sends it; nothing for what is none.
std::optional<Request> parse_request(std::string_view text);
// Its arguments alone, a JSON object {NAME: VALUE}; nothing for what is none.
std::optional<Values> parse_arguments(std::string_view text);

// An outcome as text, and out of it. A text that breaks off has no status: nothing.
std::string to_text(const Outcome &outcome);
std::optional<Outcome> parse_outcome(std::string_view text);
// What can be read in a text that breaks off.
Answer parse_answer(std::string_view text);

// ---- the method's end, for a script ----

// The request of the method that this process was started by; nothing in any other process.
std::optional<Request> read_request();
// False when there is no such method, or when it could not be stored.
bool answer_output(std::string_view name, std::string_view value);
bool answer_row(std::span<const Rows::Field> fields);
bool answer_error(int code, std::string_view text);
bool answer_left_undone(std::string_view text);

} // namespace hostadm::framework
