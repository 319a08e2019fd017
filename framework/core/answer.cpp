// SPDX-License-Identifier: MIT
#include "core/answer.hpp"

#include <algorithm>
#include <limits>

namespace hostadm::framework {

namespace {

constexpr std::size_t shown_of_rubbish = 60;

// The beginning of a bad line, fit for one line on a terminal.
std::string excerpt(std::string_view line) {
    std::string shown;
    for (const char c : line.substr(0, shown_of_rubbish))
        shown += static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f ? '?' : c;
    return line.size() > shown_of_rubbish ? shown + "..." : shown;
}

std::optional<int> number(const Json &line, const char *key) {
    const auto found = line.find(key);
    if (found == line.end() || !found->is_number_integer())
        return std::nullopt;
    const auto value = found->get<long long>();
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
        return std::nullopt;
    return static_cast<int>(value);
}

std::optional<std::string> bytes(const Json &line, const char *key) {
    const auto found = line.find(key);
    return found == line.end() ? std::nullopt : from_json(*found);
}

bool take_output(Answer &answer, const Json &line) {
    const auto name = bytes(line, "output");
    auto value = bytes(line, "value");
    if (!name || !value || !is_name(*name))
        return false;
    const auto same = std::find_if(answer.outputs.begin(), answer.outputs.end(),
                                   [&](const auto &output) { return output.first == *name; });
    if (same != answer.outputs.end())
        same->second = std::move(*value);
    else
        answer.outputs.emplace_back(*name, std::move(*value));
    return true;
}

bool take_row(Answer &answer, const Json &fields) {
    if (!fields.is_object())
        return false;
    Values row;
    row.reserve(fields.size());
    for (const auto &[name, field] : fields.items()) {
        auto value = from_json(field);
        if (!value || !is_name(name))
            return false;
        row.emplace_back(name, std::move(*value));
    }
    answer.rows.push_back(std::move(row));
    return true;
}

bool take_error(Answer &answer, const Json &line) {
    const auto code = number(line, "error");
    auto text = bytes(line, "text");
    if (!code || !text)
        return false;
    // Code 0 says that what was recorded so far has been put right.
    if (*code == 0)
        answer.errors.clear();
    else
        answer.errors.push_back({*code, std::move(*text)});
    return true;
}

bool take_mark(Answer &answer, const Json &line) {
    const auto mark = number(line, "mark");
    if (!mark || (*mark != 1 && *mark != 2))
        return false;
    auto text = bytes(line, "text");
    if (*mark == 2 && text && !text->empty())
        answer.left_undone.push_back(std::move(*text));
    else
        answer.dirty = *mark == 2;
    return true;
}

bool take(Answer &answer, std::string_view text) {
    const Json line = Json::parse(text, nullptr, false);
    if (!line.is_object())
        return false;
    if (line.contains("output"))
        return take_output(answer, line);
    if (line.contains("row"))
        return take_row(answer, line["row"]);
    if (line.contains("error"))
        return take_error(answer, line);
    if (line.contains("mark"))
        return take_mark(answer, line);
    if (line.contains("invalid")) {
        answer.invalid = bytes(line, "invalid");
        return answer.invalid.has_value();
    }
    if (line.contains("begin"))
        return answer.begun = true;
    if (line.contains("end"))
        return (answer.ended = number(line, "end")).has_value();
    if (line.contains("outcome")) {
        answer.reason = bytes(line, "reason").value_or("");
        return (answer.outcome = number(line, "outcome")).has_value();
    }
    return false;
}

} // namespace

const std::string *Answer::output(std::string_view name) const {
    for (const auto &[key, value] : outputs)
        if (key == name)
            return &value;
    return nullptr;
}

Answer parse_answer(std::string_view text) {
    Answer answer;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t newline = text.find('\n');
        const std::string_view line = text.substr(0, newline);
        // An object is taken even when the newline behind it is missing: it is whole by itself.
        const bool taken = line.empty() || take(answer, line);
        if (!taken && answer.defect.empty())
            answer.defect = newline == text.npos
                                ? "its answer breaks off in the middle of a line: " + excerpt(line)
                                : "line " + std::to_string(number) +
                                      " of its answer cannot be understood: " + excerpt(line);
        text.remove_prefix(newline == text.npos ? text.size() : newline + 1);
    }
    return answer;
}

std::string to_lines(const Answer &answer) {
    std::string text;
    const auto add = [&](const Json &line) { text += line.dump() + "\n"; };
    if (answer.begun)
        add(begin_line(""));
    for (const auto &[name, value] : answer.outputs)
        add(output_line(name, value));
    for (const Values &row : answer.rows) {
        RowLine line;
        for (const auto &[name, value] : row)
            line.add(name, value);
        add(std::move(line).line());
    }
    for (const ErrorRecord &error : answer.errors)
        add(error_line(error.code, error.text));
    for (const std::string &undone : answer.left_undone)
        add(mark_line(2, undone));
    if (answer.dirty)
        add(mark_line(2));
    if (answer.invalid)
        add(invalid_line(*answer.invalid));
    if (answer.ended)
        add(end_line(*answer.ended));
    return text;
}

Json begin_line(std::string_view method) {
    return {{"begin", to_json(method)}};
}

Json output_line(std::string_view name, std::string_view value) {
    return {{"output", to_json(name)}, {"value", to_json(value)}};
}

Json error_line(int code, std::string_view text) {
    return {{"error", code}, {"text", to_json(text)}};
}

Json mark_line(int mark, std::string_view text) {
    Json line = {{"mark", mark}};
    if (!text.empty())
        line["text"] = to_json(text);
    return line;
}

Json invalid_line(std::string_view text) {
    return {{"invalid", to_json(text)}};
}

Json end_line(int status) {
    return {{"end", status}};
}

Json outcome_line(int status, std::string_view reason) {
    return {{"outcome", status}, {"reason", to_json(reason)}};
}

Json RowLine::line() && {
    Json line = Json::object();
    line["row"] = std::move(fields_);
    return line;
}

bool is_name(std::string_view name) {
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return !name.empty() && name.size() <= 64 && letter(name.front()) &&
           std::all_of(name.begin(), name.end(),
                       [&](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; });
}

} // namespace hostadm::framework
