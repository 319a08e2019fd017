// SPDX-License-Identifier: MIT
#include "rehearsal/sequence.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "base/translation.hpp"
#include "rehearsal/command.hpp"

namespace hostadm::rehearsal {

namespace {

std::string quoted(const std::string &text) {
    std::string safe = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            safe += '\\';
        safe += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
    return safe + '"';
}

// A point on a life line: column and row.
std::string point(std::size_t column, std::size_t row) {
    return "p" + std::to_string(column) + "_" + std::to_string(row);
}

std::string life_lines(const std::vector<std::string> &names, std::size_t rows) {
    std::string text, heads = "  { rank=same;";
    for (std::size_t column = 0; column < names.size(); ++column) {
        text += "  h" + std::to_string(column) +
                " [shape=box, style=filled, fillcolor=lightgrey, label=" + quoted(names[column]) + "];\n";
        heads += " h" + std::to_string(column) + ";";
        text += "  h" + std::to_string(column);
        for (std::size_t row = 0; row < rows; ++row)
            text += " -> " + point(column, row);
        text += " [arrowhead=none, style=dotted, color=grey, weight=1000];\n";
    }
    text += heads + " }\n";
    // The columns stay in their order.
    for (std::size_t column = 0; column + 1 < names.size(); ++column)
        text += "  h" + std::to_string(column) + " -> h" + std::to_string(column + 1) + " [style=invis];\n";
    return text;
}

std::string arrow(std::size_t row, std::size_t from, std::size_t to, const std::string &label, bool arrives) {
    return "  { rank=same; " + point(from, row) + "; " + point(to, row) + "; }\n  " + point(from, row) +
           " -> " + point(to, row) + " [constraint=false, label=" + quoted(label) +
           (arrives ? "" : ", color=red, fontcolor=red, arrowhead=tee") + "];\n";
}

} // namespace

std::string sequence_graph(const Rehearsed &rehearsed) {
    const Walked &walked = rehearsed.walked;
    std::vector<std::string> names = {rehearsed.client.name + "\n" + rehearsed.client.address};
    names.front() = rehearsed.client.name + " " + rehearsed.client.address;
    for (const Exchange &exchange : walked.exchanges)
        if (std::find(names.begin(), names.end(), exchange.to) == names.end())
            names.push_back(exchange.to);
    const std::size_t rows = 2 * walked.exchanges.size() + 1;
    std::string text = "digraph boot {\n  splines=line; nodesep=0.7; ranksep=0.3;\n"
                       "  node [shape=point, width=0.01, fontname=Helvetica, fontsize=12];\n"
                       "  edge [fontname=Helvetica, fontsize=11];\n" +
                       life_lines(names, rows);
    std::size_t row = 0;
    for (const Exchange &exchange : walked.exchanges) {
        const auto to =
            static_cast<std::size_t>(std::find(names.begin(), names.end(), exchange.to) - names.begin());
        text += arrow(row++, 0, to, exchange.question, true);
        text +=
            exchange.answered
                ? arrow(row, to, 0, exchange.answer, true)
                : arrow(row, to, 0, exchange.answer.empty() ? base::tr("no answer") : exchange.answer, false);
        ++row;
    }
    for (const StageResult &stage : walked.stages)
        if (stage.outcome == StageResult::Outcome::failed)
            text += "  stopped [shape=box, color=red, fontcolor=red, label=" +
                    quoted(base::tr("stopped: {1}: {2}", base::tr(stage.name.c_str()), stage.detail)) +
                    "];\n  " + point(0, row) + " -> stopped [color=red, arrowhead=none];\n";
    if (walked.passed())
        text += "  booted [shape=box, color=darkgreen, fontcolor=darkgreen, label=" +
                quoted(base::tr("it boots")) + "];\n  " + point(0, row) +
                " -> booted [color=darkgreen, arrowhead=none];\n";
    return text + "}\n";
}

void draw_sequence(const Rehearsed &rehearsed, const std::string &file) {
    const base::Answer said = ask({"dot", "-Tsvg"}, sequence_graph(rehearsed));
    if (said.ending.not_found())
        throw std::runtime_error(base::tr("the picture is drawn by graphviz; install the package graphviz"));
    if (!said.ending.well())
        throw std::runtime_error(
            base::tr("graphviz cannot draw the picture: dot {1}", base::in_words(said.ending)));
    std::ofstream stream(file, std::ios::binary);
    if (!(stream << said.output << std::flush))
        throw std::runtime_error(base::tr("{1} cannot be written: {2}", file, std::strerror(errno)));
}

} // namespace hostadm::rehearsal
