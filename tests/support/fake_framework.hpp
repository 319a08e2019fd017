// SPDX-License-Identifier: MIT
// A stand-in for the administration framework: it remembers what the library recorded and was asked.
#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace fakes {

using Row = std::map<std::string, std::string>;

struct Recorded {
    int code;
    std::string text; // fake catalogue texts are "CODE|ARGUMENT|ARGUMENT..."
    bool operator==(const Recorded &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Recorded &record) {
        return out << record.code << ": " << record.text;
    }
};

struct Performed {
    std::string method, method_class, host;
    std::vector<std::pair<std::string, std::string>> input; // in the order in which it was put
};

struct Framework {
    std::vector<Recorded> errors;
    std::vector<int> cleanups;                  // states given to adm_err_cleanup
    std::map<std::string, std::string> inputs;  // adm_args_geti
    std::map<std::string, std::string> outputs; // adm_args_set
    std::vector<Performed> performed;           // adm_perf_method
    int perform_status = 0;
    std::string perform_error = "cannot run";
    std::vector<Row> rows;                                       // what the performed method returned
    std::function<std::vector<Row>(const Performed &)> rows_for; // in place of rows: depends on the call
    unsigned int result_flags = 2u;                              // adm_args_htype of it
    int handles = 0;                                             // argument handles alive
    int error_handles = 0;                                       // error handles alive
    std::vector<std::string> calls;                              // names of framework calls, in order
    bool announce_errors = false; // also print records to stderr, for tests of functions that exit
};

Framework &framework(); // the one instance; reset() before each test
void reset_framework();

} // namespace fakes
