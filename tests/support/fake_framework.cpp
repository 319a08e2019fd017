// SPDX-License-Identifier: MIT
#include "support/fake_framework.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "hostadm/framework.h"

namespace {

fakes::Framework state;

std::string text_of(const void *value, unsigned int length) {
    return value == nullptr ? std::string() : std::string(static_cast<const char *>(value), length);
}

// An argument record that owns its strings; the value may be written to.
struct Argument {
    std::string name;
    std::string value;
    adm_arg record{};
    adm_arg *view() {
        record = {name.c_str(), ADM_STRING, static_cast<unsigned int>(value.size()), value.data()};
        return &record;
    }
};

} // namespace

struct adm_args {
    std::vector<std::pair<std::string, std::string>> put;
    std::vector<std::map<std::string, Argument>> rows;
    std::size_t current = 0;
};

namespace fakes {

Framework &framework() {
    return state;
}
void reset_framework() {
    state = Framework{};
}

} // namespace fakes

extern "C" {

int adm_init(void) {
    state.calls.push_back("adm_init");
    return 0;
}

int adm_args_geti(const char *name, unsigned int type, adm_arg **record) {
    static std::map<std::string, std::unique_ptr<Argument>> given;
    const auto found = state.inputs.find(name);
    if (type != ADM_STRING || found == state.inputs.end())
        return 1;
    given[name] = std::make_unique<Argument>(Argument{found->first, found->second, {}});
    *record = given[name]->view();
    return 0;
}

int adm_args_set(const char *name, unsigned int type, unsigned int length, const void *value) {
    state.calls.push_back(std::string("adm_args_set ") + name);
    if (type != ADM_STRING)
        return 1;
    state.outputs[name] = text_of(value, length);
    return 0;
}

int adm_args_newh(adm_args **handle) {
    *handle = new adm_args;
    ++state.handles;
    return 0;
}

int adm_args_puta(adm_args *handle, const char *name, unsigned int type, unsigned int length,
                  const void *value) {
    if (type != ADM_STRING)
        return 1;
    handle->put.emplace_back(name, text_of(value, length));
    return 0;
}

int adm_args_geta(adm_args *handle, const char *name, unsigned int type, adm_arg **record) {
    if (type != ADM_STRING || handle->current >= handle->rows.size())
        return 1;
    auto &row = handle->rows[handle->current];
    const auto found = row.find(name);
    if (found == row.end())
        return 1;
    *record = found->second.view();
    return 0;
}

int adm_args_reset(adm_args *handle) {
    handle->current = 0;
    return 0;
}

int adm_args_nextr(adm_args *handle) {
    if (handle->current + 1 >= handle->rows.size())
        return ADM_NO_MORE_ROWS;
    ++handle->current;
    return 0;
}

unsigned int adm_args_htype(adm_args *) {
    return state.result_flags;
}

int adm_args_freeh(adm_args *handle) {
    if (handle != nullptr)
        --state.handles;
    delete handle;
    return 0;
}

int _get_returned_arg(adm_args *handle, const char *name, const char *fallback, char **value) {
    adm_arg *record = nullptr;
    if (adm_args_geta(handle, name, ADM_STRING, &record) == 0) {
        *value = record->value;
        return 0;
    }
    static std::string missing;
    missing = fallback == nullptr ? "" : fallback;
    *value = missing.data();
    return 1;
}

int adm_perf_method(const char *method, adm_args *input, adm_args **output, adm_error **error, ...) {
    fakes::Performed call{method, "", "", input->put};
    va_list options;
    va_start(options, error);
    for (int option = va_arg(options, int); option != 0; option = va_arg(options, int)) {
        const char *value = va_arg(options, char *);
        (option == ADM_CLASS ? call.method_class : call.host) = value == nullptr ? "(null)" : value;
    }
    va_end(options);
    state.performed.push_back(call);
    *output = new adm_args;
    ++state.handles;
    for (const fakes::Row &row : state.rows_for ? state.rows_for(call) : state.rows) {
        auto &copy = (*output)->rows.emplace_back();
        for (const auto &[name, value] : row)
            copy.emplace(name, Argument{name, value, {}});
    }
    (*output)->current = (*output)->rows.size(); // the caller has to rewind
    *error = new adm_error{state.perform_status, strdup(state.perform_error.c_str())};
    ++state.error_handles;
    return state.perform_status;
}

int adm_err_setf(adm_error *, int code, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *formatted = nullptr;
    const int length = vasprintf(&formatted, format, args);
    va_end(args);
    const std::string text(formatted, static_cast<std::size_t>(length));
    std::free(formatted);
    state.calls.push_back("adm_err_setf " + std::to_string(code));
    state.errors.push_back({code, text});
    if (state.announce_errors)
        std::fprintf(stderr, "recorded %d: %s\n", code, text.c_str());
    return 0;
}

int adm_err_cleanup(adm_error *, int mark) {
    state.calls.push_back("adm_err_cleanup " + std::to_string(mark));
    state.cleanups.push_back(mark);
    if (state.announce_errors)
        std::fprintf(stderr, "cleanup %d\n", mark);
    return 0;
}

int adm_err_freeh(adm_error *error) {
    if (error == nullptr)
        return 0;
    --state.error_handles;
    std::free(error->text);
    delete error;
    return 0;
}

// Texts that show which code was used and every argument, in order.
extern const char *const system_msgs[100] = {
    /* 0 */ "0",
    "1|%s|%s",
    "2",
    "3",
    "4",
    "5",
    "6",
    "7",
    /* 8 */ "8|%s|%s|%s",
    "9",
    /* 10 */ "10|%s|%s|%s",
    "11",
    "12",
    "13",
    "14",
    "15",
    "16",
    "17",
    "18",
    "19",
    "20",
    "21",
    /* 22 */ "22|%s",
    /* 23 */ "23|%s|%s|%s|%s",
    /* 24 */ "24|%s|%s|%s|%s",
    "25",
    /* 26 */ "26|%s|%s",
    /* 27 */ "27|%s|%s|%s|%s",
    "28",
    /* 29 */ "29|%s|%s|%s|%s|%s",
    /* 30 */ "30|%s|%s|%s|%s|%s|%s",
    "31",
    "32",
    "33",
    "34",
    "35",
    "36",
    /* 37 */ "37|%s|%s|%s",
    "38",
    "39",
    /* 40 */ "40|%s|%s",
    "41",
    /* 42 */ "42|%s|%s|%s",
    "43",
    /* 44 */ "44|%s|%s",
    "45",
    "46",
    "47",
    "48",
    /* 49 */ "49|%s|%s|%s|%s",
    "50",
    "51",
    "52",
    /* 53 */ "53|%s|%s",
    "54",
    "55",
    /* 56 */ "56|%s|%s|%s|%s",
    "57",
    "58",
    "59",
    "60",
    "61",
    "62",
    "63",
    "64",
    "65",
    /* 66 */ "66|%s|%s|%s|%s|%s|%s",
    /* 67 */ "67|%s|%s|%s|%s|%s|%s",
    "68",
    "69",
    /* 70 */ "70|%s|%s|%s|%s",
    "71",
    "72",
    "73",
    "74",
    "75",
    "76",
    "77",
    "78",
    "79",
    "80",
    "81",
    "82",
    "83",
    "84",
    "85",
    "86",
    "87",
    "88",
    "89",
    "90",
    /* 91 */ "91|%s|%s|%s",
    /* 92 */ "92|%s|%s|%s",
    "93",
    "94",
    "95",
    /* 96 */ "96|%s|%s",
    /* 97 */ "97|%s|%s|%s",
    "98",
    "99"};

#ifdef __SANITIZE_ADDRESS__
// That this table takes the place of the framework's own is the point of it.
const char *__asan_default_options(void) {
    return "detect_odr_violation=0";
}
#endif
}
