// SPDX-License-Identifier: MIT
// hostadm generate: writes the manual pages and the completion of the shell from the methods' descriptions.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "commands.hpp"
#include "core/kinds.hpp"
#include "output.hpp"

namespace hostadm::cli {

namespace {

using method::Argument;
using method::Description;
using method::Field;

// Text for a manual page: what the formatter would take for its own is made plain.
std::string roff(std::string_view text) {
    std::string plain;
    for (const char c : text) {
        if (c == '\\')
            plain += "\\e";
        else if (c == '-')
            plain += "\\-";
        else if ((c == '.' || c == '\'') && plain.empty())
            plain += std::string("\\&") + c;
        else
            plain += c;
    }
    return plain;
}

std::string page_name(const std::string &method) {
    std::string name = "hostadm-" + method;
    name.replace(name.find('/'), 1, "-");
    return name;
}

std::string heading(const std::string &name, int section) {
    return ".TH " + roff(name) + " " + std::to_string(section) +
           " \"\" \"hostadm " HOSTADM_VERSION "\" \"hostadm\"\n";
}

std::string item(const std::string &term, const std::string &text) {
    return ".TP\n.B " + roff(term) + "\n" + (text.empty() ? "\\&" : roff(text)) + "\n";
}

std::string fields(const std::string &title, const std::vector<Field> &list) {
    if (list.empty())
        return "";
    std::string text = ".SH " + title + "\n";
    for (const Field &field : list)
        text += item(field.name, field.purpose);
    return text;
}

std::string argument_text(const Argument &argument) {
    std::string text = argument.purpose.empty() ? "" : argument.purpose + ".\n";
    text += "It must be " + framework::accepted(argument) + ".";
    if (argument.required)
        text += "\nIt is required.";
    else if (!argument.default_value.empty())
        text += "\nWithout it, " + argument.default_value + " is used.";
    return text;
}

std::string method_page(const Description &description) {
    std::string text = heading(page_name(description.name), 8);
    text += ".SH NAME\n" + roff(page_name(description.name)) + " \\- " + roff(description.purpose) + "\n";
    text += ".SH SYNOPSIS\n.B hostadm run " + roff(description.name) + "\n";
    for (const Argument &argument : description.arguments)
        text += (argument.required ? "" : "[") + ("\\fB" + roff(argument.name) + "=\\fP\\fI") +
                roff(framework::kind_name(argument.kind)) + "\\fP" + (argument.required ? "" : "]") + "\n";
    if (!description.arguments.empty())
        text += ".SH ARGUMENTS\nEach is given as NAME=VALUE. An empty value counts as none.\n";
    for (const Argument &argument : description.arguments)
        text += item(argument.name, argument_text(argument));
    text += fields("OUTPUTS", description.outputs) + fields("ROWS", description.columns);
    text += ".SH EXIT STATUS\n" + item("0", "Done.") +
            item("1", "The method failed; standard error says why.") +
            item("2", "An argument was refused, and nothing was changed.");
    return text + ".SH SEE ALSO\n.BR hostadm (1)\n";
}

constexpr const char *command_page_text = R"(.SH SYNOPSIS
.B hostadm list
.RI [ CLASS ]
.RB [ \-\-json ]
.br
.B hostadm help
.RI [ CLASS/METHOD ]
.br
.B hostadm run
.RB [ \-\-json ]
.RB [ \-\-host
.IR HOST ]
.I CLASS/METHOD
.RI [ NAME=VALUE "] ..."
.br
.B hostadm preview
.I CLASS/METHOD
.RI [ NAME=VALUE "] ..."
.br
.B hostadm status
.RB [ \-\-json ]
.br
.B hostadm arg
.BR get | set | row | error | undone
.RI "[" WORD "] ..."
.SH DESCRIPTION
A method is a small program that does one administrative task: it adds a client, shares a directory, sets up a boot
area. This command shows the methods, runs them, and shows what this server serves.
.SH COMMANDS
.TP
.B list
Lists the methods, a line each, all or those of one class.
.TP
.B help
Says what a method does and which arguments it takes.
.TP
.B run
Runs a method. Its arguments are checked before anything is done. Outputs are printed as lines of a name and a value,
rows as a table, all of it as JSON with
.BR \-\-json .
A value that is no UTF-8 text is printed in JSON as {"base64": "..."}. With
.B \-\-host
the method runs on that host, over
.BR ssh (1),
which must log in there without asking for a password.
TERM and HUP sent to
.B hostadm
go on to the method, and how it ended is reported as ever; a method on another host gets HUP when the connection ends.
.TP
.B preview
Runs a method in a throwaway root over this system and shows what it would change; nothing on the system changes.
.TP
.B status
Shows what this server serves: clients, boot links, shares, mounts, daemons.
.TP
.B arg
For methods that are shell scripts.
.B arg get
.I NAME
prints an input argument; it ends with status 1 when that was not given.
.B arg set
.I NAME VALUE
returns an output,
.B arg row
.IR NAME=VALUE ...
a row;
.B arg error
.I CODE TEXT...
records an error; code 0 withdraws those recorded before.
.B arg undone
.I TEXT...
says that something is left half done.
.SH METHODS IN SHELL
A method is an executable file in the folder of its class. Asked with
.B \-\-describe
it prints its description as JSON:
.PP
.nf
{"name": "host/greet", "purpose": "greet a host",
 "arguments": [{"name": "host", "kind": "host", "purpose": "whom", "required": true},
               {"name": "how", "kind": "choice", "choices": ["hello", "bye"], "default": "hello"}],
 "outputs": [{"name": "greeting", "purpose": "what was said", "required": true}],
 "columns": []}
.fi
.PP
Otherwise it does its work and ends with status 0, or records an error and ends with another. What it prints goes to
standard error; its results are what it returns with
.BR "hostadm arg" .
)";

std::string command_page(const std::vector<Description> &methods) {
    std::string text = heading("hostadm", 1);
    text += ".SH NAME\nhostadm \\- keep the network-boot side of a server in order\n";
    text += command_page_text;
    text += ".SH ARGUMENTS\nThe manual page of a method names the kind of each argument.\n";
    for (int kind = 0; kind <= static_cast<int>(method::Kind::text); ++kind) {
        const Argument argument{
            .name = "x", .kind = static_cast<method::Kind>(kind), .choices = {"one of its choices"}};
        text += item(std::string(framework::kind_name(argument.kind)), framework::accepted(argument));
    }
    text += ".SH EXIT STATUS\n" + item("0", "Done.") + item("1", "The method failed.") +
            item("2", "Wrong usage or an invalid argument; nothing was changed.");
    text += ".PP\nErrors go to standard error as\n.IR \"hostadm: METHOD: TEXT (error CODE)\" .\n";
    text += ".SH FILES\n.TP\n.I LIBEXEC/hostadm/methods/CLASS/NAME\nThe methods.\n.SH SEE ALSO\n";
    for (std::size_t at = 0; at < methods.size(); ++at)
        text +=
            ".BR " + roff(page_name(methods[at].name)) + " (8)" + (at + 1 < methods.size() ? ",\n" : "\n");
    return text;
}

// Words that stand in the completion script in single quotes.
std::string words(const std::vector<std::string> &list) {
    std::string text;
    for (const std::string &word : list)
        if (word.find_first_of("' \t\n\\\"$`") == word.npos)
            text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string completion(const std::vector<Description> &descriptions) {
    std::vector<std::string> methods;
    std::string arguments;
    std::string values;
    for (const Description &description : descriptions) {
        methods.push_back(description.name);
        std::vector<std::string> names;
        for (const Argument &argument : description.arguments) {
            names.push_back(argument.name + "=");
            std::vector<std::string> choices = argument.choices;
            if (argument.kind == method::Kind::yes_no)
                choices = {"yes", "no"};
            const std::string key = "    " + description.name + ":" + argument.name + ") ";
            if (!choices.empty())
                values += key + "words='" + words(choices) + "' ;;\n";
            else if (argument.kind == method::Kind::path || argument.kind == method::Kind::device)
                values += key + "files=yes ;;\n";
        }
        arguments += "    " + description.name + ") words='" + words(names) + "' ;;\n";
    }
    return "# bash completion for hostadm; made from the descriptions of its methods\n\n"
           "_hostadm_arguments() {\n    case $1 in\n" +
           arguments + "    esac\n}\n\n_hostadm_values() {\n    case $1 in\n" + values + "    esac\n}\n" + R"(
_hostadm() {
    local methods=')" +
           words(methods) + R"('
    # A word may have been taken apart at "=": put it together again.
    local line=${COMP_LINE:0:COMP_POINT} current words='' files=''
    current=${line##*[[:space:]]}
    local -a before
    read -r -a before <<<"${line%"$current"}"
    local command=${before[1]-} method='' word
    for word in "${before[@]:2}"; do
        [[ -z $method && $word == */* ]] && method=$word
    done
    COMPREPLY=()
    if [[ -z $command ]]; then
        words='list help run preview status arg --help --version'
    elif [[ $command == list ]]; then
        words="$(printf '%s\n' $methods | cut -d/ -f1 | sort -u) --json"
    elif [[ $command == status ]]; then
        words='--json'
    elif [[ $command == arg ]]; then
        words='get set row error undone'
    elif [[ $command != @(help|run|preview) ]]; then
        return
    elif [[ -z $method ]]; then
        words=$methods
        [[ $command == help ]] || words+=' --json'
    elif [[ $command == help ]]; then
        return
    elif [[ $current == *=* ]]; then
        _hostadm_values "$method:${current%%=*}"
        current=${current#*=}
        [[ -n $files ]] && mapfile -t COMPREPLY < <(compgen -f -- "$current")
    else
        _hostadm_arguments "$method"
        words+=' --json'
        compopt -o nospace 2>/dev/null
    fi
    [[ -n $words ]] && mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    # Only what follows the last "=" is replaced on the command line.
    return 0
}

complete -F _hostadm hostadm
)";
}

void write(const std::filesystem::path &path, const std::string &text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    if (!(file << text).flush())
        throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(errno));
}

// Pages of methods that are gone must go too.
void remove_pages(const std::filesystem::path &folder) {
    if (!std::filesystem::is_directory(folder))
        return;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.path().filename().string().starts_with("hostadm-"))
            std::filesystem::remove(entry.path());
}

int generate(const std::filesystem::path &share) {
    int status = done;
    std::vector<Description> descriptions;
    for (const std::string &name : framework::list_methods()) {
        auto described = framework::describe(name);
        if (const auto *defect = std::get_if<std::string>(&described)) {
            print_error(name, *defect, framework::cannot_run);
            status = failed;
            continue;
        }
        descriptions.push_back(std::move(std::get<Description>(described)));
        descriptions.back().name = name;
    }
    remove_pages(share / "man/man8");
    write(share / "man/man1/hostadm.1", command_page(descriptions));
    for (const Description &description : descriptions)
        write(share / "man/man8" / (page_name(description.name) + ".8"), method_page(description));
    write(share / "bash-completion/completions/hostadm", completion(descriptions));
    return status;
}

} // namespace

void add_generate(CLI::App &app, Work &chosen) {
    static std::string share;
    CLI::App *command = app.add_subcommand("generate", "write manual pages and completion")->group("");
    command->add_option("share", share, "the folder to write to")->required();
    command->callback([&chosen] { chosen = [] { return generate(share); }; });
}

} // namespace hostadm::cli
