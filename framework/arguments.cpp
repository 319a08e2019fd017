// SPDX-License-Identifier: MIT
// Argument handles, and the arguments of the method that this process is.
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "base/boundary.hpp"
#include "base/immortal.hpp"
#include "framework/handle.hpp"
#include "framework/protocol/answer.hpp"
#include "framework/protocol/channel.hpp"
#include "hostadm/framework.h"

namespace {

namespace base = hostadm::base;
using namespace hostadm::framework;

bool is_empty(const char *text) {
    return text == nullptr || *text == '\0';
}

// A string argument ends at its length or at a NUL before it.
std::string_view text_of(const void *value, unsigned int length) {
    if (value == nullptr)
        return {};
    const char *text = static_cast<const char *>(value);
    return {text, strnlen(text, length)};
}

} // namespace

// What the caller has put into the first row hides what a method returned there.
Field *adm_args::find_put(std::string_view name) {
    return current == 0 ? find(put, name) : nullptr;
}

std::size_t adm_args::find_returned(std::string_view name) const {
    return current < returned.size() ? returned.find(current, name) : Rows::none;
}

char *adm_args::value(std::string_view name) {
    if (Field *field = find_put(name))
        return field->view()->value;
    if (const std::size_t number = find_returned(name); number != Rows::none)
        return returned.writable(number);
    Field *output = find(outputs, name);
    return output == nullptr ? nullptr : output->view()->value;
}

adm_arg *adm_args::record(std::string_view name) {
    if (Field *field = find_put(name))
        return field->view();
    if (const std::size_t number = find_returned(name); number != Rows::none) {
        const auto [called, text] = returned.field(number);
        return &(records_[number] = {called.data(), ADM_STRING, static_cast<unsigned int>(text.size()),
                                     returned.writable(number)});
    }
    Field *output = find(outputs, name);
    return output == nullptr ? nullptr : output->view();
}

extern "C" {

int adm_init(void) {
    return base::at_boundary([] {
        inputs();
        return 0;
    });
}

int adm_args_geti(const char *name, unsigned int type, adm_arg **record) {
    return base::at_boundary([&] {
        if (is_empty(name) || type != ADM_STRING || record == nullptr)
            return EINVAL;
        Field *found = find(inputs(), name);
        if (found == nullptr)
            return ENOENT;
        *record = found->view();
        return 0;
    });
}

int adm_args_set(const char *name, unsigned int type, unsigned int length, const void *value) {
    return base::at_boundary([&] {
        if (name == nullptr || !is_name(name) || type != ADM_STRING)
            return EINVAL;
        return append_answer(output_line(name, text_of(value, length))) ? 0 : EBADF;
    });
}

int adm_args_newh(adm_args **handle) {
    return base::at_boundary([&] {
        if (handle == nullptr)
            return EINVAL;
        *handle = std::make_unique<adm_args>().release();
        return 0;
    });
}

int adm_args_puta(adm_args *handle, const char *name, unsigned int type, unsigned int length,
                  const void *value) {
    return base::at_boundary([&] {
        if (handle == nullptr || name == nullptr || !is_name(name) || type != ADM_STRING)
            return EINVAL;
        std::string text(text_of(value, length));
        if (Field *same = find(handle->put, name))
            same->assign(std::move(text));
        else
            handle->put.emplace_back(name, std::move(text));
        return 0;
    });
}

int adm_args_geta(adm_args *handle, const char *name, unsigned int type, adm_arg **record) {
    return base::at_boundary([&] {
        if (handle == nullptr || is_empty(name) || type != ADM_STRING || record == nullptr)
            return EINVAL;
        *record = handle->record(name);
        return *record == nullptr ? ENOENT : 0;
    });
}

int adm_args_reset(adm_args *handle) {
    if (handle == nullptr)
        return EINVAL;
    handle->current = 0;
    return 0;
}

int adm_args_nextr(adm_args *handle) {
    if (handle == nullptr)
        return EINVAL;
    if (handle->current + 1 >= handle->rows())
        return ADM_NO_MORE_ROWS;
    ++handle->current;
    return 0;
}

unsigned int adm_args_htype(adm_args *handle) {
    return handle == nullptr ? 0 : handle->flags;
}

int adm_args_freeh(adm_args *handle) {
    const std::unique_ptr<adm_args> owner(handle);
    return 0;
}

int _get_returned_arg(adm_args *handle, const char *name, const char *fallback, char **value) {
    return base::at_boundary([&] {
        if (value == nullptr)
            return EINVAL;
        *value = handle == nullptr || is_empty(name) ? nullptr : handle->value(name);
        if (*value != nullptr)
            return 0;
        // The caller may write to it as to any value, so it gets a copy that lives as long as the handle.
        static base::Immortal<std::string> without_handle;
        if (fallback == nullptr)
            *value = nullptr;
        else if (handle == nullptr)
            *value = (without_handle.get() = fallback).data();
        else
            *value = handle->fallbacks.emplace_back(fallback).data();
        return handle == nullptr || is_empty(name) ? EINVAL : ENOENT;
    });
}
}
