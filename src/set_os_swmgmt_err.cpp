// SPDX-License-Identifier: MIT
// Translates a failure of the software-management library into an error record.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/owners.hpp"
#include "hostadm.h"
#include "src/support/error.hpp"
#include "src/support/text.hpp"

namespace {

using namespace hostadm;

constexpr int space = 1;
constexpr int no_space = 2;
constexpr int revision = 9;

// What is known by its kind alone.
struct PlainFailure {
    int kind;
    void (*record)(const char *method);
};
template <const LiteralError &error> void record_plain(const char *method) {
    record_literal<error>(method);
}

constexpr std::array<PlainFailure, 6> plain_failures = {{
    {3, record_plain<outstanding_dependency>},
    {4, record_plain<media_failure>},
    {5, record_plain<modification_failed>},
    {6, record_plain<invalid_service>},
    {7, record_plain<invalid_operation>},
    {8, record_plain<invalid_softinfo>},
}};

void record_unknown(const char *method, int what) {
    record_literal<unknown_failure>(method, what);
}

constexpr std::size_t report_size = 1024;
using Buffer = base::Allocated<char>;

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
        record_literal<memory_is_out>(method);
        return;
    }
    for (int taken = 0; shortage != nullptr && taken < most_records; shortage = shortage->next, ++taken) {
        const std::size_t length = describe(line.get(), *shortage);
        if (std::strlen(report.get()) + length < report_size) // a later, shorter line may still fit
            std::strcat(report.get(), line.get());
    }
    record_literal<insufficient_space>(method, report.get());
}

void record_no_space(const char *method, const swmgmt_no_space *detail) {
    const swmgmt_no_space places = detail == nullptr ? swmgmt_no_space{} : *detail;
    record_literal<no_free_space>(method, text_or(places.first, ""), text_or(places.second, ""));
}

void record_revision(const char *method, const swmgmt_revision *detail) {
    const swmgmt_revision found = detail == nullptr ? swmgmt_revision{} : *detail;
    record_literal<inconsistent_revision>(method, text_or(found.package, ""), text_or(found.installed, ""),
                                          text_or(found.required, ""), text_or(found.arch, ""));
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
            return failure.record(method);
    record_unknown(method, -1);
}
