// SPDX-License-Identifier: MIT
// What is to know of a subject that is more than one command: hostadm help TOPIC.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hostadm::cli {

struct Topic {
    std::string_view name;
    const char *title;
    std::vector<const char *> paragraphs;
    std::vector<std::pair<const char *, const char *>> commands; // each with what it is for
};

const std::vector<Topic> &topics();
const Topic *find_topic(std::string_view name); // nullptr: there is none

// The topic for a person to read, in lines of so many columns at most.
std::string text_of(const Topic &topic, std::size_t columns);

} // namespace hostadm::cli
