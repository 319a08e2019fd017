// SPDX-License-Identifier: MIT
// Error records and the mark of half-done changes.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/boundary.hpp"
#include "base/translation.hpp"
#include "framework/protocol/answer.hpp"
#include "framework/protocol/channel.hpp"
#include "hostadm/framework.h"

namespace {

namespace base = hostadm::base;
using namespace hostadm::framework;

[[gnu::format(printf, 1, 0)]] std::string formatted(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return format;
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

// A record that no method answer takes is said at once,
// so that it is not lost; code 0 says only that all is well.
void say(int code, const std::string &text) {
    if (code != 0)
        std::fprintf(stderr, "%s (error %d)\n", text.c_str(), code);
}

} // namespace

extern "C" {

int adm_err_setf(adm_error *where, int code, const char *format, ...) {
    // What is recorded is often an errno text; the caller's errno must survive the recording too.
    const int saved = errno;
    va_list arguments;
    va_start(arguments, format);
    const int status = base::at_boundary([&] {
        if (format == nullptr)
            return EINVAL;
        const std::string text = formatted(format, arguments);
        if (where != nullptr) {
            char *copy = strdup(text.c_str());
            if (copy == nullptr)
                return ENOMEM;
            std::free(where->text);
            *where = {code, copy};
        } else if (!append_answer(error_line(code, text)))
            say(code, text);
        return 0;
    });
    va_end(arguments);
    errno = saved;
    return status;
}

int adm_err_cleanup(adm_error *where, int state) {
    return base::at_boundary([&] {
        if (state != ADM_CLEAN && state != ADM_DIRTY)
            return EINVAL;
        // The mark belongs to a method's answer; a single record has none.
        if (where == nullptr && !append_answer(mark_line(state)) && state == ADM_DIRTY)
            std::fprintf(stderr, "%s\n", base::tr("a change is left half done"));
        return 0;
    });
}

int adm_err_freeh(adm_error *error) {
    if (error != nullptr)
        std::free(error->text);
    std::free(error);
    return 0;
}
}
