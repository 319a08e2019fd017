// SPDX-License-Identifier: MIT
// Tells gettext where the translations of the error texts lie, before anybody asks for one.
#include <exception>
#include <libintl.h>

#include "framework/runner/layout.hpp"

namespace {

[[gnu::constructor]] void find_translations() noexcept {
    try {
        bindtextdomain("system_msgs", hostadm::framework::layout().locale.c_str());
    } catch (const std::exception &) {
        // Without memory the texts stay English.
    }
}

} // namespace
