// SPDX-License-Identifier: MIT
#include "src/support/client_list.hpp"

#include <algorithm>
#include <functional>

namespace hostadm {

std::size_t ClientList::hash_of(std::string_view name) {
    return std::hash<std::string_view>()(name);
}

// Takes in the nodes that a caller has appended behind the end that we know.
void ClientList::catch_up() {
    client_node *node = last_ == nullptr ? first_ : last_->next;
    for (; node != nullptr; node = node->next) {
        if (node->name != nullptr) {
            reserve_one();
            const std::size_t hash = hash_of(node->name);
            take(find(node->name, hash), hash, node);
        }
        last_ = node;
    }
}

// Of several nodes of one name the first is kept.
void ClientList::take(Slot &slot, std::size_t hash, const client_node *node) {
    if (slot.node != nullptr)
        return;
    slot = {hash, node};
    ++used_;
}

// The slot of a name, or the free one where it belongs.
ClientList::Slot &ClientList::find(std::string_view name, std::size_t hash) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (slots_[at].node != nullptr && (slots_[at].hash != hash || slots_[at].node->name != name))
        at = (at + 1) & mask;
    return slots_[at];
}

void ClientList::reserve_one() {
    if (4 * (used_ + 1) <= 3 * slots_.size())
        return;
    constexpr std::size_t smallest = 1024;
    std::vector<Slot> old(std::max(smallest, 2 * slots_.size()));
    old.swap(slots_);
    const std::size_t mask = slots_.size() - 1;
    for (const Slot &slot : old) {
        if (slot.node == nullptr)
            continue;
        std::size_t at = slot.hash & mask;
        while (slots_[at].node != nullptr)
            at = (at + 1) & mask;
        slots_[at] = slot;
    }
}

} // namespace hostadm
