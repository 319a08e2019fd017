// SPDX-License-Identifier: MIT
// The stop for exceptions at the edge of C: none may cross into C.
#pragma once

#include <cerrno>
#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace hostadm::base {

// What the exception that is being handled means as an errno value. Only within a catch block.
inline int error_being_handled() noexcept {
    try {
        throw;
    } catch (const std::system_error &error) { // ours, and the system's own
        return error.code().value();
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    } catch (const std::length_error &) { // of a text that no memory could hold
        return ENOMEM;
    } catch (...) {
        return EIO;
    }
}

// The answer of the work, or of translate(errno value) when the work threw.
template <typename Work, typename Translate>
auto translated_at_boundary(Work &&work, Translate &&translate) noexcept -> decltype(work()) {
    try {
        return std::forward<Work>(work)();
    } catch (...) {
        return std::forward<Translate>(translate)(error_being_handled());
    }
}

// For functions that answer with 0 or an errno value.
template <typename Work> int at_boundary(Work &&work) noexcept {
    return translated_at_boundary(std::forward<Work>(work), [](int error) { return error; });
}

// For functions that have a status of their own for every failure.
template <typename Status, typename Work>
auto at_boundary(Status failure, Work &&work) noexcept -> decltype(work()) {
    return translated_at_boundary(std::forward<Work>(work), [&](int) { return failure; });
}

// For functions that answer as system calls do: -1, or a null pointer, and errno.
template <typename Status, typename Work>
auto errno_at_boundary(Status failure, Work &&work) noexcept -> decltype(work()) {
    return translated_at_boundary(std::forward<Work>(work), [&](int error) {
        errno = error;
        return failure;
    });
}

} // namespace hostadm::base
