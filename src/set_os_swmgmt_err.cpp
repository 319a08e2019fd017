// SPDX-License-Identifier: MIT
// Translates a failure of the software-management library into an error record.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libintl.h>

#include "hostadm.h"
#include "src/support/handle.hpp"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

constexpr int space = 1;
constexpr int no_space = 2;
constexpr int revision = 9;

// What is known by its kind alone.
struct PlainFailure {
    int kind;
    int code;
    const char *text;
};
constexpr std::array<PlainFailure, 6> plain_failures = {{
    {3, 25, "Method %s: failed due to outstanding dependency"},
    {4, 35, "Method %s: media failure unable to perform modification"},
    {5, 34, "Method %s: service modification failed"},
    {6, 37, "Method %s: invalid service for this operation"},
    {7, 36, "Method %s: invalid operation, service not modified"},
    {8, 38, "Method %s: invalid softinfo description or file"},
}};

// The texts live here, not in the message table.
template <typename... Arguments> void record_text(int code, const char *text, Arguments... arguments) {
    adm_err_setf(nullptr, code, gettext(text), arguments...);
}

void record_unknown(const char *method, int what) {
    record_text(26, "Method %s: failed due to unknown error return, %d", method, what);
}

constexpr std::size_t report_size = 1024;
using Buffer = Allocated<char>;

Buffer zeroed_buffer() {
    return Buffer(static_cast<char *>(std::calloc(report_size, 1)));
}

// Writes the line of one file system; its length, which may be more than the buffer holds.
std::size_t describe(char *line, const swmgmt_space &shortage) {
    const char *label = text_or(shortage.label, "");
    const char *name = text_or(shortage.name, "");
    const int length =
        shortage.no_inodes != 0
            ? std::snprintf(line, report_size, "\n%s %s no inodes available", label, name)
            : std::snprintf(line, report_size, "\n%s %s\n\tThe total required size for %s is %dKB", label,
                            name, name, shortage.required_kb);
    return length < 0 ? report_size : static_cast<std::size_t>(length);
}

void record_space(const char *method, const swmgmt_space *shortage) {
    constexpr int most_records = 11;
    const Buffer line = zeroed_buffer();
    const Buffer report = zeroed_buffer();
    if (line == nullptr || report == nullptr) {
        record_text(8, "Method %s: unable to allocate memory", method);
        return;
    }
    for (int taken = 0; shortage != nullptr && taken < most_records; shortage = shortage->next, ++taken) {
        const std::size_t length = describe(line.get(), *shortage);
        if (std::strlen(report.get()) + length < report_size) // a later, shorter line may still fit
            std::strcat(report.get(), line.get());
    }
    record_text(24, "Method %s: failed insufficient space available on:%s", method, report.get());
}

void record_no_space(const char *method, const swmgmt_no_space *detail) {
    const swmgmt_no_space places = detail == nullptr ? swmgmt_no_space{} : *detail;
    record_text(23, "Method %s: failed no free space on %s %s", method, text_or(places.first, ""),
                text_or(places.second, ""));
}

void record_revision(const char *method, const swmgmt_revision *detail) {
    const swmgmt_revision found = detail == nullptr ? swmgmt_revision{} : *detail;
    record_text(
        39,
        "Method %s: inconsistent revision, installed package %s revision %s does not match revision %s for "
        "%s architecture",
        method, text_or(found.package, ""), text_or(found.installed, ""), text_or(found.required, ""),
        text_or(found.arch, ""));
}

} // namespace

void set_swmgmt_errors(const char *method, const swmgmt_error *error) {
    if (error == nullptr)
        return record_unknown(method, -2);
    if (error->kind == space)
        return record_space(method, static_cast<const swmgmt_space *>(error->detail));
    if (error->kind == no_space)
        return record_no_space(method, static_cast<const swmgmt_no_space *>(error->detail));
    if (error->kind == revision)
        return record_revision(method, static_cast<const swmgmt_revision *>(error->detail));
    for (const PlainFailure &failure : plain_failures)
        if (failure.kind == error->kind)
            return record_text(failure.code, failure.text, method);
    record_unknown(method, -1);
}
