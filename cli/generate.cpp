// SPDX-License-Identifier: MIT
// hostadm generate: writes the manual pages from the methods' descriptions, in the language of who calls it. Those in
// another than the texts are written in go to a folder of their own, man/LANG, where man looks for them.
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "base/language.hpp"
#include "base/translation.hpp"
#include "cli/commands.hpp"
#include "cli/options.hpp"
#include "cli/output.hpp"

namespace hostadm::cli {

namespace {

using method::Argument;
using method::Description;
using method::Field;
using method::Kind;

// Text for a manual page: what the formatter would take for its own is made plain.
std::string roff(std::string_view text) {
    std::string plain;
    for (const char c : text) {
        if (c == '\\')
            plain += "\\e";
        else if (c == '-')
            plain += "\\-";
        else if (c == '`')
            plain += "\\(ga";
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

std::string heading(std::string name, int section) {
    for (char &c : name)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return ".TH " + name + " " + std::to_string(section) +
           " " HOSTADM_DATE " \"hostadm " HOSTADM_VERSION "\" \"hostadm\"\n";
}

// How much of a text has this width. A formatter writes a letter that is not ASCII as "\[u00E4]".
std::size_t beginning_of_width(std::string_view text, std::size_t width) {
    constexpr std::size_t other_letter = 8;
    std::size_t at = 0, used = 0;
    for (; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        used += byte < 0x80 ? 1 : byte >= 0xc0 ? other_letter : 0;
        if (used > width)
            break;
    }
    return at;
}

// Where a line of text is broken: behind a sentence, or before it is too long.
std::size_t break_of(std::string_view line) {
    const std::size_t longest = beginning_of_width(line, 78);
    const auto begins_sentence = [&](std::size_t at) { return line[at] >= 'A' && line[at] <= 'Z'; };
    for (std::size_t at = line.find(". "); at < longest && at + 2 < line.size(); at = line.find(". ", at + 1))
        if (begins_sentence(at + 2))
            return at + 1;
    if (line.size() <= longest)
        return line.npos;
    const std::size_t blank = line.rfind(' ', longest);
    return blank == line.npos ? line.find(' ') : blank;
}

// A page with its texts, but not its examples, in short lines of a sentence or less.
std::string in_short_lines(const std::string &page) {
    std::string all;
    bool is_example = false;
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        is_example = (is_example && !line.starts_with(".EE")) || line.starts_with(".EX");
        const bool is_text = !is_example && !line.starts_with('.');
        for (std::size_t end; is_text && (end = break_of(line)) != line.npos;) {
            all += line.substr(0, end) + "\n";
            line.erase(0, end + 1);
            if (line.starts_with('.') || line.starts_with('\''))
                line.insert(0, "\\&");
        }
        all += line + "\n";
    }
    return all;
}

std::string section(const char *title) {
    return std::string(".SH ") + title + "\n";
}

std::string item(const std::string &term, const std::string &text) {
    return ".TP\n.B " + roff(term) + "\n" + (text.empty() ? "\\&" : roff(text)) + "\n";
}

std::string fields(const char *title, const std::vector<Field> &list) {
    if (list.empty())
        return "";
    std::string text = section(title);
    for (const Field &field : list)
        text += item(field.name, base::tr(field.purpose.c_str()));
    return text;
}

std::string argument_text(const Argument &argument) {
    std::string text =
        argument.purpose.empty() ? "" : base::tr(argument.purpose.c_str()) + std::string(".\n");
    text += base::tr("It must be {1}.", framework::accepted(argument));
    if (argument.required)
        text += std::string("\n") + base::tr("It is required.");
    else if (!argument.default_value.empty())
        text += "\n" + base::tr("Without it, {1} is used.", argument.default_value);
    return text;
}

// "NAME=" is said in words.
std::string touched(const Description &description) {
    std::string text;
    for (const auto &[what, list] :
         {std::pair(base::tr("Files that it edits"), &description.edits),
          std::pair(base::tr("Programs that it starts"), &description.starts),
          std::pair(base::tr("Directories that it shares"), &description.shares)}) {
        std::string all;
        for (const std::string &one : *list)
            all += (all.empty() ? "" : ", ") +
                   (one.ends_with('=') ? base::tr("what {1} names", one.substr(0, one.size() - 1)) : one);
        text += all.empty() ? "" : item(what, all);
    }
    return text.empty() ? "" : section(base::tr("WHAT IT TOUCHES")) + text;
}

// A value as it may be typed.
std::string example_value(const Argument &argument) {
    static const std::map<std::string, const char *> by_name{
        {"hostname", "client1"},
        {"client", "client1"},
        {"clients", "client1,client2"},
        {"new_hostname", "client2"},
        {"instruction_set", "kel4"},
        {"inst_set_arch", "kel4"},
        {"implementation_arch", "kel4m"},
        {"imp_arch", "kel4m"},
        {"os_name", "Quorvel"},
        {"os_prod", "Quorvel"},
        {"pathname", "/export/share"},
        {"resource", "server2:/export/share"},
        {"mountpt", "/mnt"},
        {"mntopts", "ro"},
        {"root", "/export/root/client1"},
        {"rootpath", "/export/root/client1"},
        {"table", "/export/root/client1/etc/hosts"},
        {"items", "swapsize=:32"},
        {"program", "mountd"},
        {"device", "console"},
        {"args", "-a"},
    };
    static const std::map<Kind, const char *> by_kind{
        {Kind::host, "server2"},
        {Kind::hosts, "client1,client2"},
        {Kind::address, "192.0.2.17"},
        {Kind::ethernet, "8:0:20:1:2:3"},
        {Kind::path, "/export/install"},
        {Kind::device, "/dev/sda1"},
        {Kind::options, "rw=client1"},
        {Kind::release, "2.5"},
        {Kind::word, "base"},
        {Kind::number, "5"},
        {Kind::size, "64m"},
        {Kind::yes_no, "yes"},
        {Kind::text, "\"a few words\""},
        {Kind::words, "-a"},
    };
    if (!argument.choices.empty())
        return argument.choices.back();
    const auto named = by_name.find(argument.name);
    if (named != by_name.end() && framework::is_accepted(argument, named->second))
        return named->second;
    const auto found = by_kind.find(argument.kind);
    return found == by_kind.end() ? "" : found->second;
}

// A command line in an example, in lines that end in a backslash.
std::string example(const std::string &command, const std::vector<std::string> &words) {
    std::string text = ".EX\n", line = command;
    for (const std::string &word : words) {
        if (line.size() + word.size() > 66) {
            text += roff(line) + " \\e\n";
            line = "   ";
        }
        line += " " + word;
    }
    return text + roff(line) + "\n.EE\n";
}

// What must be given; where nothing must, what one of several would be.
std::vector<std::string> example_words(const Description &description) {
    std::vector<std::string> words;
    for (const Argument &argument : description.arguments)
        if (argument.required)
            words.push_back(argument.name + "=" + example_value(argument));
    for (const Argument &argument : description.arguments)
        if (words.empty() && !description.edits.empty() && argument.default_value.empty())
            words.push_back(argument.name + "=" + example_value(argument));
    return words;
}

std::string examples(const Description &description) {
    const std::vector<std::string> words = example_words(description);
    std::string text = section(base::tr("EXAMPLES"));
    if (!description.edits.empty() || !description.shares.empty())
        text += base::tr("See what it would change, and let it do that:") + std::string("\n.PP\n") +
                example("hostadm preview " + description.name, words) + ".PP\n";
    text += example("hostadm run " + description.name, words);
    if (!description.columns.empty() && description.edits.empty())
        text += ".PP\n" + std::string(base::tr("The same for a program to read:")) + "\n.PP\n" +
                example("hostadm run --json " + description.name, words);
    return text;
}

std::string method_page(const Description &description) {
    std::string text = heading(page_name(description.name), 8);
    text += section(base::tr("NAME")) + roff(page_name(description.name)) + " \\- " +
            roff(base::tr(description.purpose.c_str())) + "\n";
    text += section(base::tr("SYNOPSIS")) + ".B hostadm run " + roff(description.name) + "\n";
    for (const Argument &argument : description.arguments)
        text += (argument.required ? "" : "[") + ("\\fB" + roff(argument.name) + "=\\fP\\fI") +
                roff(framework::kind_name(argument.kind)) + "\\fP" + (argument.required ? "" : "]") + "\n";
    if (!description.arguments.empty())
        text += section(base::tr("ARGUMENTS")) +
                base::tr("Each is given as NAME=VALUE. An empty value counts as none.") + "\n";
    for (const Argument &argument : description.arguments)
        text += item(argument.name, argument_text(argument));
    text += fields(base::tr("OUTPUTS"), description.outputs) + fields(base::tr("ROWS"), description.columns) +
            touched(description);
    text += section(base::tr("EXIT STATUS")) + item("0", base::tr("Done.")) +
            item("1", base::tr("The method failed; standard error says why.")) +
            item("2", base::tr("An argument was refused, and nothing was changed."));
    return text + examples(description) + section(base::tr("SEE ALSO")) + ".BR hostadm (1)\n";
}

std::string synopsis(const CLI::App &command) {
    std::string text = ".B hostadm " + command.get_name() + "\n";
    for (const CLI::Option *option : options_of(command)) {
        const std::string name = roff(long_name(*option));
        text += takes_value(*option) ? ".RB [ " + name + "\n.IR " + roff(option->get_type_name()) + " ]"
                                     : ".RB [ " + name + " ]";
        text += is_repeated(*option) ? "...\n" : "\n";
    }
    for (const CLI::Option *option : positionals_of(command)) {
        const std::string name = roff(option->get_option_text());
        const std::string more = is_repeated(*option) ? " ..." : "";
        text += option->get_required() ? ".I " + name + more + "\n" : ".RI [ " + name + " ]" + more + "\n";
    }
    std::string verbs;
    for (const CLI::App *verb : commands_of(command))
        verbs += (verbs.empty() ? ".BR " : " | ") + verb->get_name();
    return text + (verbs.empty() ? "" : verbs + "\n.RI [ WORD ] ...\n");
}

// What the commands do, at more length than in their help.
const std::map<std::string, const char *> descriptions_of_commands{
    {"list", base::translatable(R"(Lists the methods, a line each, all or those of one class.
)")},
    {"help",
     base::translatable(
         R"(Says what a method does and which arguments it takes, which methods a class has, how a command is used, or what is
to know of a topic: clients, services, booting, checks or exit\-status.
)")},
    {"run",
     base::translatable(
         R"(Runs a method. Its arguments are checked before anything is done. Outputs are printed as lines of a name and a value,
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
)")},
    {"preview",
     base::translatable(
         R"(Runs a method in a throwaway root over this system and shows what it would change; nothing on the system changes.
Commands that mount, share, start or signal something are noted instead of run. It needs root, and fails when the method
or a command of
.B \-\-then
fails; the words of such a command may be quoted as in a shell.
With
.B \-\-host
it is previewed on that host, which needs root there.
)")},
    {"status",
     base::translatable(R"(Shows what this server serves: clients, boot links, shares, mounts, daemons.
)")},
    {"rehearse",
     base::translatable(
         R"(Lets a client boot on a virtual cable, from this server's own daemons and files, in a throwaway root and a private
network; nothing on the system changes. The stages are told as they pass: address by reverse ARP, boot program by TFTP,
name and parameters from the boot-parameter service, mount of the root, what is read first, writing, swap. Behind them
come the findings: what stopped the client and what else is wrong, each with the command that mends it. The daemons that
run now are asked as well; what they do otherwise than the rehearsed ones is a finding.
It ends with 0 when the client boots and nothing is wrong, with 1 when something is, with 2 when no table knows the client.
)")},
    {"watch",
     base::translatable(
         R"(Listens on the wire while clients boot and tells in a line each what they ask, what they get, and what a silence means;
at the end how far each came. It ends with 0 when a client came as far as its root.
)")},
    {"arg", base::translatable(R"(For methods that are shell scripts.
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
)")},
};

std::string command_item(const CLI::App &command) {
    const auto found = descriptions_of_commands.find(command.get_name());
    std::string text = ".TP\n.B " + command.get_name() + "\n" +
                       (found != descriptions_of_commands.end() ? std::string(base::tr(found->second))
                                                                : roff(command.get_description()) + "\n");
    std::string options;
    for (const CLI::Option *option : options_of(command))
        options += ".TP\n" +
                   (takes_value(*option)
                        ? ".BI \"" + roff(long_name(*option)) + " \" " + roff(option->get_type_name())
                        : ".B " + roff(long_name(*option))) +
                   "\n" + roff(option->get_description()) + "\n";
    return text + (options.empty() ? "" : ".RS\n" + options + ".RE\n");
}

constexpr const char *methods_in_shell_text =
    base::translatable(R"(A method is an executable file in the folder of its class. Asked with
.B \-\-describe
it prints its description as JSON:
.PP
.EX
{"name": "host/greet", "purpose": "greet a host", "arguments": [
   {"name": "host", "kind": "host", "required": true},
   {"name": "how", "kind": "choice",
    "choices": ["hello", "bye"], "default": "hello"}],
 "outputs": [{"name": "greeting", "purpose": "what was said"}]}
.EE
.PP
Otherwise it does its work and ends with status 0, or records an error and ends with another. What it prints goes to
standard error; its results are what it returns with
.BR "hostadm arg" .
)");

constexpr const char *examples_of_commands =
    base::translatable(R"(See what a server serves, and what is wrong there:
.PP
.EX
hostadm status
hostadm check
.EE
.PP
Add a client whose files lie ready in a tree; first look at what that changes:
.PP
.EX
hostadm preview client/add_diskless hostname=client1 \e
    address=192.0.2.17 ethernet=8:0:20:1:2:3 instruction_set=kel4 \e
    implementation_arch=kel4m os_name=Quorvel os_version=2.5 \e
    tree=/export/install/tree
.EE
.PP
Let it boot on a virtual cable, and tell what it asks when it boots for real:
.PP
.EX
hostadm rehearse client1
hostadm watch client1
.EE
.PP
Learn what a method takes, and read on:
.PP
.EX
hostadm help client/remove
hostadm help booting
.EE
)");

std::string command_page(const CLI::App &app, const std::vector<Description> &methods) {
    std::string text = heading("hostadm", 1);
    text += section(base::tr("NAME")) + "hostadm \\- " +
            roff(base::tr("keep the network-boot side of a server in order")) + "\n";
    std::string synopses, items;
    for (const CLI::App *command : commands_of(app)) {
        synopses += (synopses.empty() ? "" : ".br\n") + synopsis(*command);
        items += command_item(*command);
    }
    text +=
        section(base::tr("SYNOPSIS")) + synopses + section(base::tr("DESCRIPTION")) +
        base::tr("A method is a small program that does one administrative task: it adds a client, shares a "
                 "directory, sets up a boot area. This command shows the methods, runs them, and shows what "
                 "this server serves.") +
        "\n" + section(base::tr("COMMANDS")) + items + section(base::tr("METHODS IN SHELL")) +
        base::tr(methods_in_shell_text) + section(base::tr("ARGUMENTS")) +
        base::tr("The manual page of a method names the kind of each argument.") + "\n";
    for (int kind = 0; kind <= static_cast<int>(method::Kind::words); ++kind) {
        const Argument argument{.name = "x",
                                .kind = static_cast<method::Kind>(kind),
                                .choices = {base::tr("one of its choices")}};
        text += item(std::string(framework::kind_name(argument.kind)), framework::accepted(argument));
    }
    text += section(base::tr("EXIT STATUS")) + item("0", base::tr("Done.")) +
            item("1", base::tr("The method failed.")) +
            item("2", base::tr("Wrong usage or an invalid argument; nothing was changed.")) + ".PP\n" +
            base::tr("Errors go to standard error as\n.IR \"hostadm: METHOD: TEXT (error CODE)\" .\n") +
            section(base::tr("EXAMPLES")) + base::tr(examples_of_commands) + section(base::tr("FILES")) +
            ".TP\n.I LIBEXEC/hostadm/methods/CLASS/NAME\n" + base::tr("The methods.") + "\n" +
            section(base::tr("SEE ALSO"));
    for (std::size_t at = 0; at < methods.size(); ++at)
        text +=
            ".BR " + roff(page_name(methods[at].name)) + " (8)" + (at + 1 < methods.size() ? ",\n" : "\n");
    return text;
}

void write(const std::filesystem::path &path, const std::string &text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    if (!(file << text).flush())
        throw std::runtime_error("cannot write " + path.string() + ": " + std::strerror(errno));
}

// Pages of methods that are gone must go too; those of others, such as hostadm-nfsd.8, name no class.
void remove_pages(const std::filesystem::path &folder) {
    const std::string_view prefix = "hostadm-";
    if (!std::filesystem::is_directory(folder))
        return;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(prefix) && name.find('-', prefix.size()) != name.npos)
            std::filesystem::remove(entry.path());
    }
}

int generate(const CLI::App &app, const std::filesystem::path &share) {
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
    const std::filesystem::path manuals = share / "man" / base::language_of_texts();
    remove_pages(manuals / "man8");
    write(manuals / "man1/hostadm.1", in_short_lines(command_page(app, descriptions)));
    for (const Description &description : descriptions)
        write(manuals / "man8" / (page_name(description.name) + ".8"),
              in_short_lines(method_page(description)));
    return status;
}

} // namespace

void add_generate(CLI::App &app, Work &chosen) {
    static std::string share;
    CLI::App *command = app.add_subcommand("generate", "write the manual pages")->group("");
    command->add_option("share", share, "the folder to write to")->required();
    command->callback([&] { chosen = [&app] { return generate(app, share); }; });
}

} // namespace hostadm::cli
