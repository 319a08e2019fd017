// SPDX-License-Identifier: MIT
#include "cli/output.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/columns.hpp"
#include "base/encoding.hpp"
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

std::string printable(std::string_view text) {
    const bool readable = base::is_utf8(text);
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            shown += "\\n";
        } else if (byte < 0x20 || byte == 0x7f || (byte >= 0x80 && !readable)) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            shown += code;
        } else {
            shown += c;
        }
    }
    return shown;
}

void print(std::string_view text) {
    note_error(std::fwrite(text.data(), 1, text.size(), stdout) != text.size());
}

int finish_output() {
    note_error(std::fflush(stdout) != 0);
    return first_error;
}

void print_json(const Json &json) {
    print(json.dump(2) + "\n");
}

void print_error(std::string_view subject, std::string_view text, int code) {
    std::string line = "hostadm: ";
    if (!subject.empty())
        line.append(subject).append(": ");
    // What a command said may be several lines; those after the first are indented.
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            line += "\n    ";
        else
            line += (byte < 0x20 && c != '\t') || byte == 0x7f ? '?' : c;
    }
    if (code != 0)
        line += " " + base::tr("(error {1})", code);
    line += '\n';
    finish_output();
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace hostadm::cli
