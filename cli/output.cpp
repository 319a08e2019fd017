// SPDX-License-Identifier: MIT
#include "cli/output.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/columns.hpp"
#include "base/encoding.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"

namespace hostadm::cli {

namespace {

int first_error = 0; // of writing to standard output, as an errno

void note_error(bool happened) {
    if (happened && first_error == 0)
        first_error = errno;
}

std::string cell_text(std::string_view cell) {
    return cell.empty() ? "-" : printable(cell);
}

} // namespace

Json to_json(std::string_view bytes) {
    return base::is_utf8(bytes) ? Json(bytes) : Json{{"base64", base::to_base64(bytes)}};
}

std::string Table::text(std::size_t columns) const {
    std::vector<std::vector<std::string>> shown;
    std::vector<std::size_t> widths;
    for (const auto &line : lines_) {
        auto &cells = shown.emplace_back();
        for (std::size_t at = 0; at < line.size(); ++at) {
            cells.push_back(cell_text(line[at]));
            if (at == widths.size())
                widths.push_back(0);
            widths[at] = std::max(widths[at], base::width(cells.back()));
        }
    }
    std::string all;
    for (const auto &cells : shown) {
        std::string before;
        for (std::size_t at = 0; at + 1 < cells.size(); ++at)
            before += cells[at] + std::string(widths[at] - base::width(cells[at]) + 2, ' ');
        all += cells.empty() ? "" : base::with_hanging_text(before, cells.back(), columns);
        all += '\n';
    }
    return all;
}

Json Table::json() const {
    Json list = Json::array();
    for (std::size_t line = 1; line < lines_.size(); ++line) {
        Json &object = list.emplace_back(Json::object());
        for (std::size_t at = 0; at < lines_[line].size() && at < lines_[0].size(); ++at)
            object[lines_[0][at]] = to_json(lines_[line][at]);
    }
    return list;
}

std::string pairs_text(const std::vector<std::pair<std::string, std::string>> &pairs) {
    std::size_t widest = 0;
    for (const auto &[name, value] : pairs)
        widest = std::max(widest, base::width(name));
    std::string all;
    for (const auto &[name, value] : pairs)
        all += name + std::string(widest - base::width(name) + 2, ' ') + cell_text(value) + "\n";
    return all;
}

void print(std::string_view text) {
    note_error(std::fwrite(text.data(), 1, text.size(), stdout) != text.size());
}

int finish_output() {
    note_error(std::fflush(stdout) != 0);
    return first_error;
}

void print_json(const Json &json) {
    // Strings may hold what some terminals obey, U+007F to U+009F; JSON knows another spelling for it.
    const std::string text = json.dump(2) + "\n";
    std::string_view rest = text;
    for (std::size_t at = 0; (at = rest.find_first_of("\x7f\xc2")) != rest.npos;) {
        const bool is_pair = rest[at] == '\xc2';
        const auto byte = static_cast<unsigned char>(rest[at + (is_pair ? 1 : 0)]);
        const std::size_t end = at + (is_pair ? 2 : 1);
        char code[7] = "";
        if (byte < 0xa0)
            std::snprintf(code, sizeof code, "\\u%04x", byte);
        print(rest.substr(0, byte < 0xa0 ? at : end));
        print(code);
        rest.remove_prefix(end);
    }
    print(rest);
}

void print_error(std::string_view subject, std::string_view text, int code) {
    std::string line = "hostadm: ";
    if (!subject.empty())
        line.append(subject).append(": ");
    // What a command said may be several lines; those after the first are indented.
    bool is_first = true;
    for (const std::string_view part : base::split(text, '\n')) {
        line += is_first ? "" : "\n    ";
        line += base::printable(part, base::Steering::questioned);
        is_first = false;
    }
    if (code != 0)
        line += " " + base::tr("(error {1})", code);
    line += '\n';
    finish_output();
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace hostadm::cli
