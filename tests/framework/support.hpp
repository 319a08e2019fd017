// SPDX-License-Identifier: MIT
// Calling methods of the test installation through the C interface.
#pragma once

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "hostadm/framework.h"

namespace tests {

using Pairs = std::vector<std::pair<std::string, std::string>>;

inline int put(adm_args *handle, const std::string &name, const std::string &value) {
    return adm_args_puta(handle, name.c_str(), ADM_STRING, static_cast<unsigned int>(value.size()),
                         value.c_str());
}

// The value of a field of the current row; "(none)" where there is none.
inline std::string got(adm_args *handle, const std::string &name) {
    adm_arg *record = nullptr;
    if (adm_args_geta(handle, name.c_str(), ADM_STRING, &record) != 0)
        return "(none)";
    EXPECT_EQ(record->name, name);
    EXPECT_EQ(record->type, static_cast<unsigned int>(ADM_STRING));
    return std::string(record->value, record->length);
}

// One run of a method and everything that comes back.
class MethodRun {
public:
    explicit MethodRun(const std::string &method, const Pairs &arguments = {},
                       const char *method_class = "test", const char *host = nullptr) {
        adm_args_newh(&input_);
        for (const auto &[name, value] : arguments)
            EXPECT_EQ(put(input_, name, value), 0) << name;
        status = adm_perf_method(method.c_str(), input_, &output, &error, ADM_CLASS,
                                 const_cast<char *>(method_class), ADM_HOST, const_cast<char *>(host), 0);
    }
    ~MethodRun() {
        adm_args_freeh(input_);
        adm_args_freeh(output);
        adm_err_freeh(error);
    }
    MethodRun(const MethodRun &) = delete;
    MethodRun &operator=(const MethodRun &) = delete;

    std::string text() const { return error == nullptr || error->text == nullptr ? "(none)" : error->text; }
    std::string field(const std::string &name) const { return got(output, name); }
    std::size_t rows() const {
        if (adm_args_htype(output) == 0)
            return 0;
        adm_args_reset(output);
        std::size_t count = 1;
        while (adm_args_nextr(output) != ADM_NO_MORE_ROWS)
            ++count;
        adm_args_reset(output);
        return count;
    }

    int status = -1;
    adm_args *output = nullptr;
    adm_error *error = nullptr;

private:
    adm_args *input_ = nullptr;
};

inline MethodRun behave(const std::string &how) {
    return MethodRun("behave", {{"how", how}});
}

} // namespace tests
