// SPDX-License-Identifier: MIT
// The exchange of a rehearsal as a picture: who asked whom, what was answered, where it stopped.
#pragma once

#include <string>

#include "rehearsal/rehearsal.hpp"

namespace hostadm::rehearsal {

// As a graph that graphviz draws.
std::string sequence_graph(const Rehearsed &rehearsed);
// Draws it into a file, SVG. Throws std::runtime_error.
void draw_sequence(const Rehearsed &rehearsed, const std::string &file);

} // namespace hostadm::rehearsal
