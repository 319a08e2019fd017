// SPDX-License-Identifier: MIT
#include "framework/protocol/answer.hpp"

#include <algorithm>
#include <limits>

#include "base/translation.hpp"
#include "framework/protocol/bytes.hpp"

namespace hostadm::framework {

namespace {

constexpr std::size_t shown_of_rubbish = 60;
constexpr std::string_view row_start = R"({"row":{)";

std::string line_of(const Json &object) {
    return object.dump() + "\n";
}

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
    answer.rows.begin_row();
    for (const auto &[name, field] : fields.items()) {
        const auto value = from_json(field);
        if (!value || !is_name(name)) {
            answer.rows.drop_last_row();
            return false;
        }
        answer.rows.add(name, *value);
    }
    return true;
}

// Rows come by the hundred thousand, so the spelling in which row_line writes them is read without a detour.
// Whatever is spelt otherwise is left to the JSON library.
class RowReader {
public:
    RowReader(Rows &rows, std::string_view line) : rows_(rows), rest_(line) {}

    // False: this is another line, or a row in another spelling, and no row was added.
    bool read() {
        if (!skip(row_start) || rest_.starts_with('}'))
            return false;
        rows_.begin_row();
        bool more = true;
        while (more && take_field())
            more = skip(",");
        if (!more && rest_ == "}}")
            return true;
        rows_.drop_last_row();
        return false;
    }

private:
    bool skip(std::string_view text) {
        const bool there = rest_.starts_with(text);
        rest_.remove_prefix(there ? text.size() : 0);
        return there;
    }

    bool take_field() {
        const auto name = plain_string();
        if (!name || !is_name(*name) || rows_.find(rows_.size() - 1, *name) != Rows::none || !skip(":"))
            return false;
        const auto value = plain_string();
        if (value)
            rows_.add(*name, *value);
        return value.has_value();
    }

    // A string whose characters stand for themselves.
    std::optional<std::string_view> plain_string() {
        if (!skip("\""))
            return std::nullopt;
        const std::string_view text = rest_.substr(0, plain_length(rest_));
        rest_.remove_prefix(text.size());
        return skip("\"") ? std::optional(text) : std::nullopt;
    }

    Rows &rows_;
    std::string_view rest_;
};

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
    if (RowReader(answer.rows, text).read())
        return true;
    const Json line = parse_json(text);
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
        if (answer.rows.empty() && line.starts_with(row_start))
            answer.rows.reserve(text.size()); // mostly rows follow, whose texts are shorter than their lines
        // An object is taken even when the newline behind it is missing: it is whole by itself.
        const bool taken = line.empty() || take(answer, line);
        if (!taken && answer.defect.empty())
            answer.defect =
                newline == text.npos
                    ? base::tr("its answer breaks off in the middle of a line: {1}", excerpt(line))
                    : base::tr("line {1} of its answer cannot be understood: {2}", number, excerpt(line));
        text.remove_prefix(newline == text.npos ? text.size() : newline + 1);
    }
    return answer;
}

std::string to_lines(const Answer &answer) {
    std::string text;
    if (answer.begun)
        text += begin_line("");
    for (const auto &[name, value] : answer.outputs)
        text += output_line(name, value);
    for (const Rows::Row row : answer.rows)
        text += row_line(row.fields());
    for (const ErrorRecord &error : answer.errors)
        text += error_line(error.code, error.text);
    for (const std::string &undone : answer.left_undone)
        text += mark_line(2, undone);
    if (answer.dirty)
        text += mark_line(2);
    if (answer.invalid)
        text += invalid_line(*answer.invalid);
    if (answer.ended)
        text += end_line(*answer.ended);
    return text;
}

std::string to_text(const Outcome &outcome) {
    return to_lines(outcome.answer) + outcome_line(static_cast<int>(outcome.status), outcome.reason);
}

std::optional<Outcome> parse_outcome(std::string_view text) {
    Outcome outcome;
    outcome.answer = parse_answer(text);
    if (!outcome.answer.outcome)
        return std::nullopt;
    const int status = *outcome.answer.outcome;
    if (status == 0 || status == 2)
        outcome.status = static_cast<Outcome::Status>(status);
    outcome.reason = outcome.answer.reason;
    return outcome;
}

bool answer_output(std::string_view name, std::string_view value) {
    return append_answer(output_line(name, value));
}

bool answer_row(std::span<const Rows::Field> fields) {
    return append_answer(row_line(fields));
}

bool answer_error(int code, std::string_view text) {
    return append_answer(error_line(code, text));
}

bool answer_left_undone(std::string_view text) {
    return append_answer(mark_line(2, text));
}

std::string begin_line(std::string_view method) {
    return line_of({{"begin", to_json(method)}});
}

std::string output_line(std::string_view name, std::string_view value) {
    return line_of({{"output", to_json(name)}, {"value", to_json(value)}});
}

std::string row_line(std::span<const Rows::Field> fields) {
    std::string line;
    append_row_line(line, fields);
    return line;
}

void append_row_line(std::string &lines, std::span<const Rows::Field> fields) {
    lines += row_start;
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        const auto is_same = [&](const Rows::Field &other) { return other.first == field->first; };
        if (std::find_if(fields.begin(), field, is_same) != field)
            continue;
        const auto last = std::find_if(fields.rbegin(), fields.rend(), is_same);
        if (lines.back() != '{')
            lines += ',';
        append_json(lines, field->first);
        lines += ':';
        append_json(lines, last->second);
    }
    lines += "}}\n";
}

std::string error_line(int code, std::string_view text) {
    return line_of({{"error", code}, {"text", to_json(text)}});
}

std::string mark_line(int mark, std::string_view text) {
    Json line = {{"mark", mark}};
    if (!text.empty())
        line["text"] = to_json(text);
    return line_of(line);
}

std::string invalid_line(std::string_view text) {
    return line_of({{"invalid", to_json(text)}});
}

std::string end_line(int status) {
    return line_of({{"end", status}});
}

std::string outcome_line(int status, std::string_view reason) {
    return line_of({{"outcome", status}, {"reason", to_json(reason)}});
}

bool is_name(std::string_view name) {
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return !name.empty() && name.size() <= 64 && letter(name.front()) &&
           std::all_of(name.begin(), name.end(),
                       [&](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; });
}

} // namespace hostadm::framework
