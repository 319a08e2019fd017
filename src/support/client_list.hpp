// SPDX-License-Identifier: MIT
// The list of clients and what keeps its enumeration linear: where it ends, and a hash table of its nodes.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "hostadm.h"

namespace hostadm {

// The nodes are C's, linked by hand, and never freed: a caller may hold and extend them.
class ClientList {
public:
    client_node *first() const { return first_; }

    // Appends the node that `make` returns, unless there is one of that name.
    template <typename Make> void add(std::string_view name, Make make) {
        catch_up();
        reserve_one();
        const std::size_t hash = hash_of(name);
        Slot &slot = find(name, hash);
        if (slot.node != nullptr)
            return;
        client_node *node = make();
        (last_ == nullptr ? first_ : last_->next) = node;
        last_ = node;
        take(slot, hash, node);
    }

private:
    struct Slot {
        std::size_t hash = 0;
        const client_node *node = nullptr; // none: the slot is free
    };

    static std::size_t hash_of(std::string_view name);
    void catch_up();
    void take(Slot &slot, std::size_t hash, const client_node *node);
    Slot &find(std::string_view name, std::size_t hash);
    void reserve_one();

    client_node *first_ = nullptr;
    client_node *last_ = nullptr;
    std::vector<Slot> slots_; // as many as a power of two, at most three quarters of them taken
    std::size_t used_ = 0;
};

} // namespace hostadm
