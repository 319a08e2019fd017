// SPDX-License-Identifier: MIT
// The library's errors: each has one name here, and what is recorded with it is checked when compiling.
#pragma once

#include <cstddef>
#include <libintl.h>
#include <string>
#include <string_view>
#include <type_traits>

#include "hostadm/framework.h"
#include "src/support/text.hpp"

namespace hostadm {

// Codes of the message catalogue. Most operations answer with the code that they record.
enum Code : int {
    no_error = 0, // takes back what was recorded before, once a failure has been dealt with
    argument_missing = 1,
    no_such_entry = 8,
    bad_argument = 10,
    cannot_prepare_edit = 22,
    mount_failed = 23,
    umount_failed = 24,
    type_not_shareable = 26,
    share_failed = 27, // also: unshare failed
    subdirectory_shared = 29,
    parent_shared = 30,
    client_table_not_changed = 37,
    cannot_create = 40,
    daemon_not_started = 42,
    profile_not_copied = 44,
    share_not_exclusive = 49,
    table_is_locked = 53,
    query_not_run = 56,
    query_without_answer = 66,
    no_boot_program = 67,
    table_edit_failed = 70,
    command_not_started = 91,
    command_said = 92,
    package_missing = 96,
    template_in_the_way = 97,
};

// How many texts the message of a code takes, the method's name among them; -1: not one of ours.
constexpr int texts_of(Code code) {
    switch (code) {
    case no_error:
        return 0;
    case cannot_prepare_edit:
        return 1;
    case argument_missing:
    case type_not_shareable:
    case cannot_create:
    case profile_not_copied:
    case table_is_locked:
    case package_missing:
        return 2;
    case no_such_entry:
    case bad_argument:
    case client_table_not_changed:
    case daemon_not_started:
    case command_not_started:
    case command_said:
    case template_in_the_way:
        return 3;
    case mount_failed:
    case umount_failed:
    case share_failed:
    case share_not_exclusive:
    case query_not_run:
    case table_edit_failed:
        return 4;
    case subdirectory_shared:
        return 5;
    case parent_shared:
    case query_without_answer:
    case no_boot_program:
        return 6;
    }
    return -1;
}

// An error whose text is held here and not in the catalogue. Its code is the framework's business.
struct LiteralError {
    int code;
    const char *text;
};

inline constexpr LiteralError memory_is_out{8, "Method %s: unable to allocate memory"};
inline constexpr LiteralError pkgadd_ended_with_status{
    17, "Method %s: pkgadd of package in %s failed, status = %d"};
inline constexpr LiteralError pkgadd_ended_with_words{
    21, "Method %s: pkgadd of package in %s failed with error:\n%s"};
inline constexpr LiteralError no_free_space{23, "Method %s: failed no free space on %s %s"};
inline constexpr LiteralError insufficient_space{24, "Method %s: failed insufficient space available on:%s"};
inline constexpr LiteralError outstanding_dependency{25, "Method %s: failed due to outstanding dependency"};
inline constexpr LiteralError unknown_failure{26, "Method %s: failed due to unknown error return, %d"};
inline constexpr LiteralError modification_failed{34, "Method %s: service modification failed"};
inline constexpr LiteralError media_failure{35, "Method %s: media failure unable to perform modification"};
inline constexpr LiteralError invalid_operation{36, "Method %s: invalid operation, service not modified"};
inline constexpr LiteralError invalid_service{37, "Method %s: invalid service for this operation"};
inline constexpr LiteralError invalid_softinfo{38, "Method %s: invalid softinfo description or file"};
inline constexpr LiteralError inconsistent_revision{
    39,
    "Method %s: inconsistent revision, installed package %s revision %s does not match revision %s for %s "
    "architecture"};

namespace detail {

// What a value is in a printf text: 's', 'd', or '?' for what none takes.
template <typename Value> constexpr char conversion_of() {
    return std::is_convertible_v<Value, const char *> ? 's' : std::is_same_v<Value, int> ? 'd' : '?';
}

// Whether the conversions of a text, of which only %s and %d are used here, are these.
template <std::size_t Count> constexpr bool takes(const char *text, const char (&conversions)[Count]) {
    std::size_t next = 0;
    for (; *text != '\0'; ++text)
        if (*text == '%' && (next + 1 == Count || *++text != conversions[next++]))
            return false;
    return next + 1 == Count;
}

template <const LiteralError &error, typename... Arguments> constexpr bool fit() {
    const char conversions[] = {conversion_of<Arguments>()..., '\0'};
    return takes(error.text, conversions);
}

template <Code code, typename... Arguments> constexpr bool are_its_texts() {
    return (std::is_convertible_v<Arguments, const char *> && ...) &&
           static_cast<int>(sizeof...(Arguments)) == texts_of(code);
}

} // namespace detail

inline const char *catalogue_text(Code code) {
    return dgettext("system_msgs", system_msgs[code]);
}

// The texts are the format, also that of code 0, which takes no argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
// The first text is the name of the method everywhere.
template <Code code, typename... Texts> void record(Texts... texts) {
    static_assert(detail::are_its_texts<code, Texts...>(), "not what the message of this error takes");
    adm_err_setf(nullptr, code, catalogue_text(code), texts...);
}
#pragma GCC diagnostic pop

// Records an error; the status of an operation that answers with the code it records.
template <Code code, typename... Texts> int fail(Texts... texts) {
    record<code>(texts...);
    return code;
}

// The message of an error as a part of another one.
template <Code code, typename... Texts> std::string message(Texts... texts) {
    static_assert(detail::are_its_texts<code, Texts...>(), "not what the message of this error takes");
    return format(catalogue_text(code), texts...);
}

template <const LiteralError &error, typename... Arguments> void record_literal(Arguments... arguments) {
    static_assert(detail::fit<error, Arguments...>(), "not what the text of this error takes");
    adm_err_setf(nullptr, error.code, gettext(error.text), arguments...);
}

} // namespace hostadm
