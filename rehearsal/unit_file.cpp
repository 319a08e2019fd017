// SPDX-License-Identifier: MIT
#include "rehearsal/unit_file.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

#include "base/files.hpp"
#include "base/text.hpp"

namespace hostadm::rehearsal {

namespace fs = std::filesystem;

namespace {

// In the order in which the first that has a unit wins.
constexpr std::array places = {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
                               "/usr/lib/systemd/system", "/lib/systemd/system"};

std::string unit_path(const std::string &name, const std::string &root) {
    for (const char *place : places) {
        const std::string path = root + place + '/' + name + ".service";
        std::error_code error;
        if (fs::exists(path, error))
            return path;
    }
    return {};
}

// Drop-ins of all places by their names: of two that have one name, the first place's counts.
std::vector<std::string> drop_ins(const std::string &name, const std::string &root) {
    std::map<std::string, std::string> found;
    for (const char *place : places) {
        std::error_code error;
        for (fs::directory_iterator entry(root + place + '/' + name + ".service.d", error), end;
             !error && entry != end; entry.increment(error))
            if (entry->path().extension() == ".conf")
                found.try_emplace(entry->path().filename(), entry->path());
    }
    std::vector<std::string> paths;
    for (const auto &[file, path] : found)
        paths.push_back(path);
    return paths;
}

using Settings = std::vector<std::pair<std::string, std::string>>;

// KEY=VALUE lines, continued ones joined; which section they stand in does not matter for these keys.
Settings settings_in(const std::string &text) {
    Settings settings;
    std::string joined;
    base::for_each_line(text, [&](std::string_view line) {
        line = base::trimmed(line);
        if (joined.empty() &&
            (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '['))
            return;
        if (line.ends_with('\\')) {
            joined += std::string(line.substr(0, line.size() - 1)) + ' ';
            return;
        }
        joined += line;
        if (const std::size_t equals = joined.find('='); equals != joined.npos)
            settings.emplace_back(base::trimmed(std::string_view(joined).substr(0, equals)),
                                  base::trimmed(std::string_view(joined).substr(equals + 1)));
        joined.clear();
    });
    return settings;
}

// Words as systemd and the shell both see them: parted by blanks, held together by quotes.
std::vector<std::string> quoted_words(std::string_view text) {
    std::vector<std::string> words;
    char quote = 0;
    bool in_word = false;
    for (const char c : text) {
        if (quote == 0 && base::is_blank(c)) {
            in_word = false;
            continue;
        }
        if (!in_word)
            words.emplace_back();
        in_word = true;
        if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '"' || c == '\''))
            quote = c;
        else
            words.back() += c;
    }
    return words;
}

using Variables = std::map<std::string, std::string>;

std::string value_of(const Variables &variables, const std::string &name) {
    const auto found = variables.find(name);
    return found == variables.end() ? "" : found->second;
}

bool is_name_character(char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string filled_in(std::string_view word, const Variables &variables) {
    std::string text;
    for (std::size_t at = 0; at < word.size(); ++at) {
        if (word[at] != '$' || at + 1 == word.size()) {
            text += word[at];
            continue;
        }
        const bool braced = word[at + 1] == '{';
        std::size_t end = at + (braced ? 2 : 1);
        const std::size_t begin = end;
        while (end < word.size() && (braced ? word[end] != '}' : is_name_character(word[end])))
            ++end;
        text += value_of(variables, std::string(word.substr(begin, end - begin)));
        at = braced ? end : end - 1;
    }
    return text;
}

// "$NAME" alone becomes as many words as it holds; within a word it is put in as it is.
std::vector<std::string> command_words(const std::string &command, const Variables &variables) {
    std::vector<std::string> words;
    for (const std::string &word : quoted_words(command)) {
        const bool alone = word.size() > 1 && word[0] == '$' && word[1] != '{' &&
                           std::all_of(word.begin() + 1, word.end(), is_name_character);
        if (!alone)
            words.push_back(filled_in(word, variables));
        else
            for (std::string &each : quoted_words(value_of(variables, word.substr(1))))
                words.push_back(std::move(each));
    }
    return words;
}

} // namespace

std::vector<std::pair<std::string, std::string>> assignments_in(const std::string &text) {
    std::vector<std::pair<std::string, std::string>> all;
    base::for_each_line(text, [&](std::string_view line) {
        line = base::trimmed(line);
        if (line.starts_with("export "))
            line = base::trimmed(line.substr(7));
        const std::size_t equals = line.find('=');
        if (line.empty() || line.front() == '#' || equals == line.npos ||
            !std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(equals), is_name_character))
            return;
        std::string value;
        for (const std::string &word : quoted_words(line.substr(equals + 1)))
            value += (value.empty() ? "" : " ") + word;
        all.emplace_back(line.substr(0, equals), value);
    });
    return all;
}

std::optional<UnitCommand> unit_command(const std::string &name, const std::string &root) {
    const std::string path = unit_path(name, root);
    std::error_code error;
    if (path.empty() || fs::canonical(path, error) == "/dev/null")
        return std::nullopt;
    Settings settings = settings_in(base::file_contents(path));
    for (const std::string &more : drop_ins(name, root))
        for (auto &setting : settings_in(base::file_contents(more)))
            settings.push_back(std::move(setting));

    Variables variables, from_files;
    std::string command;
    for (const auto &[key, value] : settings) {
        if (key == "Environment") {
            for (const std::string &word : quoted_words(value))
                if (const std::size_t equals = word.find('='); equals != word.npos)
                    variables[word.substr(0, equals)] = word.substr(equals + 1);
        } else if (key == "EnvironmentFile") {
            const std::string file = root + value.substr(value.starts_with('-') ? 1 : 0);
            for (const auto &[variable, text] : assignments_in(base::file_contents(file)))
                from_files[variable] = text;
        } else if (key == "ExecStart") {
            command = value;
        }
    }
    for (const auto &[variable, text] : from_files)
        variables[variable] = text;
    command.erase(0, std::min(command.find_first_not_of("@-:+!"), command.size()));
    UnitCommand found{command_words(command, variables), path};
    if (found.words.empty())
        return std::nullopt;
    return found;
}

} // namespace hostadm::rehearsal
