// SPDX-License-Identifier: MIT
// share, unshare, shareall and unshareall: one program, told apart by the name it is called by.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.hpp"
#include "compat/share/nfs_server.hpp"
#include "compat/share/options.hpp"
#include "compat/share/share_table.hpp"
#include "compat/support/debian_program.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace compat {
namespace {

constexpr int status_failed = 1;
constexpr int status_usage = 2;

constexpr const char *share_help =
    R"(usage: share [-F nfs] [-o OPTIONS] [-d DESCRIPTION] DIRECTORY
       share [-F nfs]
Makes DIRECTORY available over NFS at once, or changes the options of a share; without a directory, lists what
is shared: resource (always "-"), path, options, description. Says nothing when it succeeds.

  -F, --type TYPE         file system type; only nfs
  -o, --options OPTIONS   rw, ro, rw=CLIENTS, ro=CLIENTS, root=CLIENTS, anon=UID, sec=sys, separated by commas;
                          CLIENTS are host names, addresses, .DOMAIN or @NETWORK/BITS, separated by colons
                          (rw when not given)
  -d, --description TEXT  shown in the list
  -h, --help              this text
Exit status: 0 done, 1 refused, 2 wrong usage. See share(8).
)";
constexpr const char *unshare_help = R"(usage: unshare [-F nfs] DIRECTORY
Withdraws DIRECTORY from NFS clients at once. Says nothing when it succeeds.

  -F, --type TYPE   file system type; only nfs
  -h, --help        this text
A call that begins with another option, such as "unshare --net COMMAND", is handed to Debian's unshare(1).
Exit status: 0 done, 1 refused, 2 wrong usage. See share(8).
)";
constexpr const char *shareall_help = R"(usage: shareall [-F nfs] [--boot] [FILE]
Shares every line "share ..." of FILE (/etc/dfs/dfstab). Comments and "#share" lines are skipped. A line that
fails is reported with its number, and the others are shared all the same.

  -F, --type TYPE   file system type; only nfs
      --boot        forget first what was shared before the host was started
  -h, --help        this text
Exit status: 0 done, 1 at least one line failed, 2 wrong usage. See share(8).
)";
constexpr const char *unshareall_help = R"(usage: unshareall [-F nfs]
Withdraws everything that is shared.

  -F, --type TYPE   file system type; only nfs
  -h, --help        this text
Exit status: 0 done, 1 failed, 2 wrong usage. See share(8).
)";

class UsageError : public Failure {
public:
    using Failure::Failure;
};

struct Request {
    std::string type = "nfs";
    std::string options = "rw";
    std::string description;
    bool boot = false;
    bool help = false;
    std::vector<std::string> operands;
};

Request parse_words(std::vector<std::string> words, const char *letters) {
    static const option long_options[] = {{"type", required_argument, nullptr, 'F'},
                                          {"options", required_argument, nullptr, 'o'},
                                          {"description", required_argument, nullptr, 'd'},
                                          {"boot", no_argument, nullptr, 'B'},
                                          {"help", no_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    Request request;
    optind = 0; // lines of a file are parsed one after another
    opterr = 0;
    for (;;) {
        const int letter =
            getopt_long(static_cast<int>(words.size()), arguments.data(), letters, long_options, nullptr);
        if (letter == -1)
            break;
        const bool allowed = letter == 'h' || std::strchr(letters, letter) != nullptr;
        if (letter == '?' || letter == ':' || !allowed)
            throw UsageError("unknown option or missing value; try --help");
        if (letter == 'F')
            request.type = optarg;
        else if (letter == 'o')
            request.options = optarg;
        else if (letter == 'd')
            request.description = optarg;
        else if (letter == 'B')
            request.boot = true;
        else
            request.help = true;
    }
    for (size_t index = static_cast<size_t>(optind); index < words.size(); ++index)
        request.operands.emplace_back(arguments[index]);
    if (request.type != "nfs")
        throw UsageError("unknown file system type \"" + request.type + "\"; only nfs can be shared");
    return request;
}

// ---- sharing one directory -------------------------------------------------------------------------------

bool has_blank_or_control(const std::string &text, bool blanks_allowed) {
    for (const char letter : text) {
        const auto code = static_cast<unsigned char>(letter);
        if (std::iscntrl(code) || (!blanks_allowed && std::isspace(code)))
            return true;
    }
    return false;
}

std::string resolved(const std::string &path) {
    char buffer[PATH_MAX];
    if (realpath(path.c_str(), buffer) == nullptr)
        fail_with_errno(path);
    return buffer;
}

bool is_below(const std::string &path, const std::string &parent) {
    return parent == "/" ? path != "/" : path.starts_with(parent + "/");
}

// Another file system below a shared directory is a share of its own right. A directory that is gone counts
// as part of the same one, since nothing can be said for it.
bool same_file_system(const std::string &one, const std::string &other) {
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) != 0 || stat(other.c_str(), &second) != 0 ||
           first.st_dev == second.st_dev;
}

// The kind of the neighbour comes first: whoever reads the
// complaint looks for that word, which the path may hold.
void check_neighbours(const ShareTable &table, const std::string &path) {
    for (const Share &other : table.shares()) {
        if (is_below(other.path, path) && same_file_system(other.path, path))
            throw Failure("sub-directory (" + other.path + ") already shared, in " + path);
        if (is_below(path, other.path) && same_file_system(other.path, path))
            throw Failure("parent (" + other.path + ") already shared, of " + path);
    }
}

Share checked_share(const Request &request, const NfsServer &server) {
    if (request.operands.size() != 1)
        throw UsageError("give one directory; a path or description with blanks must be quoted");
    if (request.operands[0].empty() || request.operands[0][0] != '/')
        throw Failure(request.operands[0] + ": not an absolute path");
    const std::string path = resolved(request.operands[0]);
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0)
        fail_with_errno(path);
    if (!S_ISDIR(info.st_mode) && !(S_ISREG(info.st_mode) && server.is_kernel()))
        throw Failure(path +
                      (S_ISREG(info.st_mode)
                           ? ": the NFS server shares directories only; share the directory of this file"
                           : ": not a directory"));
    // The list of shares, the tables and the server's file
    // are all split at blanks; complaints at parentheses.
    if (has_blank_or_control(path, false) || path.find_first_of("\"'();{}#,=\\") != std::string::npos)
        throw Failure(path + ": a share cannot have a blank or one of \"'();{}#,=\\ in its path");
    if (has_blank_or_control(request.description, true))
        throw Failure("the description contains a control character");
    parse_share_options(request.options);
    return {path, request.options, request.description};
}

// ---- the commands ----

// Saves the table and hands it to the server, if there is one; on failure everything is as before.
void commit(const ShareTable &table, const ShareTable &before, const NfsServer *server) {
    table.save();
    if (server == nullptr)
        return;
    try {
        publish_shares(*server);
        server->reload();
    } catch (...) {
        before.save();
        publish_shares(*server);
        throw;
    }
}

int list_shares() {
    const ShareTable table = ShareTable::load();
    for (const Share &share : table.shares())
        std::printf("-  %s  %s  \"%s\"\n", share.path.c_str(), share.options.c_str(),
                    share.description.c_str());
    return 0;
}

int share(const std::vector<std::string> &words) {
    const Request request = parse_words(words, "F:o:d:h");
    if (request.help)
        return std::fputs(share_help, stdout) < 0;
    if (request.operands.empty())
        return list_shares();
    const auto server = find_nfs_server();
    const Share wanted = checked_share(request, *server);
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    check_neighbours(before, wanted.path);
    ShareTable table = before;
    table.put(wanted);
    commit(table, before, server.get());
    return 0;
}

// Linux has another command of this name, which begins with options that this one does not have.
bool is_for_debians_unshare(const std::vector<std::string> &words) {
    const std::string first = words.size() > 1 ? words[1] : "";
    return first.starts_with('-') && !first.starts_with("-F") && !first.starts_with("-o") && first != "-h" &&
           first != "--type" && !first.starts_with("--type=") && first != "--help" && first != "--";
}

int unshare(const std::vector<std::string> &words) {
    const Request request = parse_words(words, "F:o:h");
    if (request.help)
        return std::fputs(unshare_help, stdout) < 0;
    if (request.operands.size() != 1)
        throw UsageError("give one directory");
    const std::string &path = request.operands[0];
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    ShareTable table = before;
    char real[PATH_MAX];
    if (!table.remove(path) && (realpath(path.c_str(), real) == nullptr || !table.remove(real)))
        throw Failure(path + ": not shared");
    commit(table, before, installed_nfs_server().get());
    return 0;
}

// The words of a line of the share table, with the quoting that the shell has.
std::vector<std::string> table_words(std::string_view line) {
    std::vector<std::string> words;
    bool in_word = false;
    char quote = 0;
    for (size_t index = 0; index < line.size(); ++index) {
        const char letter = line[index];
        if (quote == 0 && std::isspace(static_cast<unsigned char>(letter))) {
            in_word = false;
            continue;
        }
        if (quote == 0 && !in_word && letter == '#')
            break;
        if (!in_word) {
            words.emplace_back();
            in_word = true;
        }
        if (letter == quote)
            quote = 0;
        else if (quote == 0 && (letter == '"' || letter == '\''))
            quote = letter;
        else if (letter == '\\' && quote != '\'' && index + 1 < line.size())
            words.back() += line[++index];
        else
            words.back() += letter;
    }
    if (quote != 0)
        throw Failure(std::string("no closing ") + quote);
    return words;
}

// A line of its own that the share of a directory around it makes good already.
bool is_served(const ShareTable &table, const Share &wanted) {
    return std::any_of(table.shares().begin(), table.shares().end(), [&](const Share &other) {
        return is_below(wanted.path, other.path) && same_file_system(other.path, wanted.path) &&
               other.options == wanted.options;
    });
}

int shareall(const std::vector<std::string> &words) {
    const Request request = parse_words(words, "F:hB");
    if (request.help)
        return std::fputs(shareall_help, stdout) < 0;
    if (request.operands.size() > 1)
        throw UsageError("give at most one file");
    const std::string file = request.operands.empty() ? "/etc/dfs/dfstab" : request.operands[0];
    const auto text = read_file(file);
    if (!text && !request.operands.empty())
        throw Failure(file + ": no such file");

    const auto server = find_nfs_server();
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    ShareTable table = before;
    if (request.boot)
        table.clear();
    int status = 0;
    int number = 0;
    const std::string lines = text.value_or("");
    for (const std::string_view line : hostadm::base::split(lines, '\n')) {
        ++number;
        try {
            const std::vector<std::string> line_words = table_words(line);
            if (line_words.empty())
                continue;
            if (line_words[0] != "share" && line_words[0] != "/usr/sbin/share")
                throw Failure("not a share command: \"" + line_words[0] + "\"");
            const Share wanted = checked_share(parse_words(line_words, "F:o:d:"), *server);
            if (is_served(table, wanted))
                continue;
            check_neighbours(table, wanted.path);
            table.put(wanted);
        } catch (const Failure &error) {
            print_complaint("shareall", file + " line " + std::to_string(number) + ": " + error.what());
            status = status_failed;
        }
    }
    commit(table, before, server.get());
    return status;
}

int unshareall(const std::vector<std::string> &words) {
    const Request request = parse_words(words, "F:h");
    if (request.help)
        return std::fputs(unshareall_help, stdout) < 0;
    if (!request.operands.empty())
        throw UsageError("takes no directory");
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    if (!before.shares().empty())
        commit(ShareTable(), before, installed_nfs_server().get());
    return 0;
}

} // namespace
} // namespace compat

int main(int argc, char **argv) {
    const std::vector<std::string> words(argv, argv + argc);
    const char *const slash = argc > 0 ? std::strrchr(argv[0], '/') : nullptr;
    const std::string name = argc == 0 ? "share" : slash != nullptr ? slash + 1 : argv[0];
    return compat::guarded_main(name, compat::status_failed, [&] {
        try {
            if (name == "unshare" && compat::is_for_debians_unshare(words))
                compat::DebianProgram("unshare", "util-linux").take_over(argv);
            if (name == "unshare")
                return compat::unshare(words);
            if (name == "shareall")
                return compat::shareall(words);
            if (name == "unshareall")
                return compat::unshareall(words);
            return compat::share(words);
        } catch (const compat::UsageError &error) {
            compat::print_complaint(name, error.what());
            return compat::status_usage;
        }
    });
}
