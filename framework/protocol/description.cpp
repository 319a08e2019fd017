// SPDX-License-Identifier: MIT
#include "framework/protocol/description.hpp"

#include <algorithm>

#include "base/columns.hpp"
#include "base/nearest.hpp"
#include "base/translation.hpp"
#include "framework/protocol/kinds.hpp"

namespace hostadm::framework {

namespace {

using method::Argument;
using method::Description;
using method::Field;
using method::Kind;
using method::Source;

Json to_json(const Argument &argument) {
    Json json = {{"name", argument.name},
                 {"kind", kind_name(argument.kind)},
                 {"purpose", argument.purpose},
                 {"required", argument.required}};
    if (!argument.default_value.empty())
        json["default"] = argument.default_value;
    if (!argument.choices.empty())
        json["choices"] = argument.choices;
    return json;
}

Json to_json(const std::vector<Field> &fields) {
    Json list = Json::array();
    for (const Field &field : fields) {
        Json &json = list.emplace_back(Json{{"name", field.name}, {"purpose", field.purpose}});
        if (field.required)
            json["required"] = true;
    }
    return list;
}

// Reads a description; throws what is wrong with it.
class Parser {
public:
    Description description(const Json &json) const {
        if (!json.is_object())
            throw std::string(base::tr("it is no JSON object"));
        Description read;
        read.name = text(json, "name");
        read.purpose = text(json, "purpose");
        for (const Json &item : list(json, "arguments")) {
            Argument next = argument(item);
            if (std::any_of(read.arguments.begin(), read.arguments.end(),
                            [&next](const Argument &earlier) { return earlier.name == next.name; }))
                throw base::tr("it has two arguments {1}", next.name);
            read.arguments.push_back(std::move(next));
        }
        for (const Json &item : list(json, "outputs"))
            read.outputs.push_back(field(item));
        for (const Json &item : list(json, "columns"))
            read.columns.push_back(field(item));
        read.edits = texts(json, "edits");
        read.starts = texts(json, "starts");
        read.shares = texts(json, "shares");
        for (const Json &item : list(json, "values"))
            read.values.push_back(source(item));
        return read;
    }

private:
    static std::string text(const Json &json, const char *key) {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_string())
            throw base::tr("\"{1}\" is missing or no text", key);
        return found->get<std::string>();
    }
    static std::string optional_text(const Json &json, const char *key) {
        return json.contains(key) ? text(json, key) : "";
    }
    static bool truth(const Json &json, const char *key) {
        const auto found = json.find(key);
        if (found != json.end() && !found->is_boolean())
            throw base::tr("\"{1}\" is neither true nor false", key);
        return found != json.end() && found->get<bool>();
    }
    static Json list(const Json &json, const char *key) {
        const auto found = json.find(key);
        if (found != json.end() && !found->is_array())
            throw base::tr("\"{1}\" is no list", key);
        return found == json.end() ? Json::array() : *found;
    }
    static std::vector<std::string> texts(const Json &json, const char *key) {
        std::vector<std::string> read;
        for (const Json &item : list(json, key)) {
            if (!item.is_string())
                throw base::tr("\"{1}\" holds something else than texts", key);
            read.push_back(item.get<std::string>());
        }
        return read;
    }
    static std::string name(const Json &json) {
        if (!json.is_object())
            throw std::string(base::tr("a list holds something else than objects"));
        std::string read = text(json, "name");
        if (!is_name(read))
            throw base::tr("\"{1}\" is no name", read);
        return read;
    }
    static Source source(const Json &json) {
        if (!json.is_object())
            throw base::tr("\"{1}\" holds something else than objects", "values");
        return {text(json, "argument"), text(json, "method"), text(json, "column")};
    }
    static Field field(const Json &json) {
        return {name(json), optional_text(json, "purpose"), truth(json, "required")};
    }
    static Argument argument(const Json &json) {
        Argument read{.name = name(json)};
        const std::string kind = text(json, "kind");
        const auto known = kind_called(kind);
        if (!known)
            throw base::tr("argument {1} is of the unknown kind \"{2}\"", read.name, kind);
        read.kind = *known;
        read.purpose = optional_text(json, "purpose");
        read.required = truth(json, "required");
        read.default_value = optional_text(json, "default");
        for (const Json &choice : list(json, "choices")) {
            if (!choice.is_string())
                throw base::tr("a choice of argument {1} is no text", read.name);
            read.choices.push_back(choice.get<std::string>());
        }
        if (read.kind == method::Kind::choice && read.choices.empty())
            throw base::tr("argument {1} has no \"choices\"", read.name);
        if (!read.default_value.empty() && !is_accepted(read, read.default_value))
            throw base::tr("the default of argument {1} cannot be \"{2}\"; it must be {3}", read.name,
                           read.default_value, accepted(read));
        return read;
    }
};

// Lines of "  NAME  TEXT", the texts in one column.
std::string definitions(const std::vector<std::pair<std::string, std::string>> &lines, std::size_t columns) {
    std::size_t widest = 0;
    for (const auto &[name, text] : lines)
        widest = std::max(widest, base::width(name));
    std::string all;
    for (const auto &[name, text] : lines)
        all += base::with_hanging_text("  " + name + std::string(widest - base::width(name) + 2, ' '), text,
                                       columns) +
               "\n";
    return all;
}

std::string meaning(const Argument &argument) {
    return base::tr(argument.purpose.c_str()) + std::string(argument.purpose.empty() ? "" : "; ") +
           accepted(argument);
}

std::string explained(const Argument &argument) {
    const std::string text = meaning(argument);
    if (argument.required)
        return base::tr("{1} (required)", text);
    return argument.default_value.empty() ? text
                                          : base::tr("{1} (default: {2})", text, argument.default_value);
}

std::string section(const std::string &title, const std::vector<Field> &fields, std::size_t columns) {
    if (fields.empty())
        return "";
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Field &field : fields)
        lines.emplace_back(field.name, base::tr(field.purpose.c_str()));
    return "\n" + title + "\n" + definitions(lines, columns);
}

// What a method touches; "NAME=" is said in words.
std::string touched(const Description &description, std::size_t columns) {
    std::vector<std::pair<std::string, std::string>> lines;
    for (const auto &[verb, list] : {std::pair(base::tr("edits"), &description.edits),
                                     std::pair(base::tr("starts"), &description.starts),
                                     std::pair(base::tr("shares"), &description.shares)}) {
        std::string all;
        for (const std::string &item : *list)
            all += (all.empty() ? "" : ", ") +
                   (item.ends_with('=') ? base::tr("what {1} names", item.substr(0, item.size() - 1)) : item);
        if (!all.empty())
            lines.emplace_back(verb, all);
    }
    return lines.empty() ? ""
                         : std::string("\n") + base::tr("It touches:") + "\n" + definitions(lines, columns);
}

// A value as it may be shown in one line of an error.
std::string shown(std::string_view value) {
    std::string text;
    for (const char c : value.substr(0, 60))
        text += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
    return "\"" + text + (value.size() > 60 ? "..." : "") + "\"";
}

// What to give instead of an argument that there is not.
std::string unknown_argument(const Description &description, const std::string &wanted) {
    std::vector<std::string> names;
    std::string all;
    for (const Argument &argument : description.arguments) {
        names.push_back(argument.name);
        all += (all.empty() ? "" : ", ") + argument.name;
    }
    if (const std::string meant = base::nearest(names, wanted); !meant.empty())
        return base::tr("there is no argument {1}; did you mean {2}?", shown(wanted), meant);
    return names.empty() ? base::tr("there is no argument {1}; it takes none", shown(wanted))
                         : base::tr("there is no argument {1}; it takes {2}", shown(wanted), all);
}

std::string refused_value(const Argument &argument, const std::string &value) {
    const std::string meant = argument.kind == Kind::choice ? base::nearest(argument.choices, value) : "";
    if (!meant.empty())
        return base::tr("the argument {1} cannot be {2}; it must be {3}; did you mean {4}?", argument.name,
                        shown(value), accepted(argument), meant);
    return base::tr("the argument {1} cannot be {2}; it must be {3}", argument.name, shown(value),
                    accepted(argument));
}

// All arguments that are required and not given. There is at least one.
std::string missing_text(const Description &description, const Request &request) {
    std::vector<const Argument *> missing;
    for (const Argument &argument : description.arguments) {
        const std::string *value = request.find(argument.name);
        if (argument.required && (value == nullptr || value->empty()))
            missing.push_back(&argument);
    }
    if (missing.size() == 1)
        return base::tr("the argument {1} is missing; it must be {2}", missing[0]->name,
                        accepted(*missing[0]));
    std::string text = base::tr_n(missing.size(), "{1} argument is missing:", "{1} arguments are missing:");
    for (const Argument *argument : missing)
        text += "\n" + argument->name + ": " + meaning(*argument);
    return text;
}

} // namespace

Json to_json(const Description &description) {
    Json json = {{"name", description.name}, {"purpose", description.purpose}, {"arguments", Json::array()}};
    for (const Argument &argument : description.arguments)
        json["arguments"].push_back(to_json(argument));
    json["outputs"] = to_json(description.outputs);
    json["columns"] = to_json(description.columns);
    for (const auto &[key, list] :
         {std::pair("edits", &description.edits), std::pair("starts", &description.starts),
          std::pair("shares", &description.shares)})
        if (!list->empty())
            json[key] = *list;
    for (const Source &source : description.values)
        json["values"].push_back(
            {{"argument", source.argument}, {"method", source.method}, {"column", source.column}});
    return json;
}

std::string to_text(const Description &description) {
    return to_json(description).dump(2);
}

std::variant<Description, std::string> parse_description(std::string_view text) {
    const Json json = parse_json(text);
    if (json.is_discarded())
        return base::tr("it is no JSON");
    try {
        return Parser().description(json);
    } catch (const std::string &defect) {
        return defect;
    }
}

std::string help_text(const Description &description, std::size_t columns) {
    std::string usage;
    for (const Argument &argument : description.arguments) {
        const std::string word = argument.name + "=" + std::string(kind_name(argument.kind));
        usage += (usage.empty() ? "" : " ") + (argument.required ? word : "[" + word + "]");
    }
    std::string text = base::with_hanging_text(
                           "", description.name + ": " + base::tr(description.purpose.c_str()), columns) +
                       "\n\n";
    const std::string command = base::tr("Usage: hostadm run {1}", description.name);
    text += usage.empty() ? command : base::with_hanging_text(command + " ", usage, columns);
    text += "\n";
    if (!description.arguments.empty()) {
        std::vector<std::pair<std::string, std::string>> lines;
        for (const Argument &argument : description.arguments)
            lines.emplace_back(argument.name, explained(argument));
        text += std::string("\n") + base::tr("Arguments:") + "\n" + definitions(lines, columns);
    }
    return text + section(base::tr("Outputs:"), description.outputs, columns) +
           section(base::tr("Columns of its rows:"), description.columns, columns) +
           touched(description, columns);
}

std::optional<std::string> check(const Description &description, Request &request) {
    for (const auto &[name, value] : request.arguments)
        if (std::none_of(description.arguments.begin(), description.arguments.end(),
                         [&name = name](const Argument &argument) { return argument.name == name; }))
            return unknown_argument(description, name);
    for (const Argument &argument : description.arguments) {
        const auto given = std::find_if(request.arguments.begin(), request.arguments.end(),
                                        [&](const auto &one) { return one.first == argument.name; });
        if (given == request.arguments.end() || given->second.empty()) {
            if (argument.required)
                return missing_text(description, request);
            if (argument.default_value.empty())
                continue;
            if (given == request.arguments.end())
                request.arguments.emplace_back(argument.name, argument.default_value);
            else
                given->second = argument.default_value;
            continue;
        }
        if (!is_accepted(argument, given->second))
            return refused_value(argument, given->second);
        given->second = one_spelling(argument.kind, given->second);
    }
    return std::nullopt;
}

std::optional<std::string> missing_output(const Description &description, const Answer &answer) {
    for (const Field &field : description.outputs)
        if (field.required && answer.output(field.name) == nullptr)
            return field.name;
    return std::nullopt;
}

} // namespace hostadm::framework
