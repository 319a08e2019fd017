// SPDX-License-Identifier: MIT
// What can be typed next: the words that fit what is typed already, and where they come from.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hostadm/runner.hpp"

namespace hostadm::cli {

struct Offer {
    std::string word;
    std::string meaning; // for shells that show it
};

// The offers that go on from what is typed.
class Offers {
public:
    // What stands before a value in its word, such as "hostname=", is part of every offer.
    explicit Offers(std::string typed, std::string before = "");

    const std::string &typed() const { return typed_; } // of the value
    bool empty() const { return offers_.empty(); }
    const std::vector<Offer> &list() const { return offers_; }

    // Kept only if it goes on from what is typed and a terminal can show it.
    void add(std::string_view value, std::string_view meaning = "");
    // For values that are several with `marks` between them: from here on only the last is looked at.
    void only_last_of(std::string_view marks);

private:
    std::string typed_;
    std::string before_;
    std::vector<Offer> offers_;
};

void offer_column(Offers &offers, const std::string &method, const std::string &column);
void offer_files(Offers &offers);
void offer_interfaces(Offers &offers);

// Values of an argument of a method, the other arguments being given so far. Those that are read from this
// host's tables are none for another host.
void offer_values(Offers &offers, const method::Description &description, const method::Argument &argument,
                  const framework::Values &given, bool on_this_host);

} // namespace hostadm::cli
