// SPDX-License-Identifier: MIT
// share, unshare, shareall and unshareall: one program, told apart by the name it is called by.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/share_rules.hpp"
#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/share/nfs_server.hpp"
#include "compat/share/share_table.hpp"
#include "compat/support/debian_program.hpp"
#include "compat/support/failure.hpp"
#include "compat/support/files.hpp"

namespace compat {
namespace {

namespace base = hostadm::base;
using base::Share;
using base::ShareRequest;
using base::ShareUsage;

constexpr int status_failed = 1;
constexpr int status_usage = 2;

constexpr const char *share_help =
    base::translatable(R"(usage: share [-F nfs] [-o OPTIONS] [-d DESCRIPTION] DIRECTORY
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
)");
constexpr const char *unshare_help = base::translatable(R"(usage: unshare [-F nfs] DIRECTORY
Withdraws DIRECTORY from NFS clients at once. Says nothing when it succeeds.

  -F, --type TYPE   file system type; only nfs
  -h, --help        this text
A call that begins with another option, such as "unshare --net COMMAND", is handed to Debian's unshare(1).
Exit status: 0 done, 1 refused, 2 wrong usage. See share(8).
)");
constexpr const char *shareall_help = base::translatable(R"(usage: shareall [-F nfs] [--boot] [FILE]
Shares every line "share ..." of FILE (/etc/dfs/dfstab). Comments and "#share" lines are skipped. A line that
fails is reported with its number, and the others are shared all the same.

  -F, --type TYPE   file system type; only nfs
      --boot        forget first what was shared before the host was started
  -h, --help        this text
Exit status: 0 done, 1 at least one line failed, 2 wrong usage. See share(8).
)");
constexpr const char *unshareall_help = base::translatable(R"(usage: unshareall [-F nfs]
Withdraws everything that is shared.

  -F, --type TYPE   file system type; only nfs
  -h, --help        this text
Exit status: 0 done, 1 failed, 2 wrong usage. See share(8).
)");

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
    for (const Share &share : table.shares)
        std::printf("-  %s  %s  \"%s\"\n", share.path.c_str(), share.options.c_str(),
                    share.description.c_str());
    return 0;
}

int share(const std::vector<std::string> &words) {
    const ShareRequest request = base::parse_share_words(words, base::share_letters);
    if (request.help)
        return std::fputs(base::tr(share_help), stdout) < 0;
    if (request.operands.empty())
        return list_shares();
    const auto server = find_nfs_server();
    const Share wanted = base::wanted_share(request, server->is_kernel());
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    check_neighbours(before.shares, wanted.path);
    ShareTable table = before;
    put_share(table.shares, wanted);
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
    const ShareRequest request = base::parse_share_words(words, base::unshare_letters);
    if (request.help)
        return std::fputs(base::tr(unshare_help), stdout) < 0;
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    ShareTable table = before;
    withdraw_share(table.shares, request);
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
        throw Failure(base::tr("no closing {1}", quote));
    return words;
}

int shareall(const std::vector<std::string> &words) {
    const ShareRequest request = base::parse_share_words(words, "F:hB");
    if (request.help)
        return std::fputs(base::tr(shareall_help), stdout) < 0;
    if (request.operands.size() > 1)
        throw ShareUsage(base::tr("give at most one file"));
    const std::string file = request.operands.empty() ? "/etc/dfs/dfstab" : request.operands[0];
    const auto text = read_file(file);
    if (!text && !request.operands.empty())
        throw Failure(base::tr("{1}: no such file", file));

    const auto server = find_nfs_server();
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    ShareTable table = before;
    if (request.boot)
        table.shares.clear();
    int status = 0;
    int number = 0;
    const std::string lines = text.value_or("");
    for (const std::string_view line : base::split(lines, '\n')) {
        ++number;
        try {
            const std::vector<std::string> line_words = table_words(line);
            if (line_words.empty())
                continue;
            if (line_words[0] != "share" && line_words[0] != "/usr/sbin/share")
                throw Failure(base::tr("not a share command: \"{1}\"", line_words[0]));
            const Share wanted =
                base::wanted_share(base::parse_share_words(line_words, "F:o:d:"), server->is_kernel());
            if (is_served(table.shares, wanted))
                continue;
            check_neighbours(table.shares, wanted.path);
            put_share(table.shares, wanted);
        } catch (const std::runtime_error &error) {
            print_complaint("shareall", base::tr("{1} line {2}: {3}", file, number, error.what()));
            status = status_failed;
        }
    }
    commit(table, before, server.get());
    return status;
}

int unshareall(const std::vector<std::string> &words) {
    const ShareRequest request = base::parse_share_words(words, "F:h");
    if (request.help)
        return std::fputs(base::tr(unshareall_help), stdout) < 0;
    if (!request.operands.empty())
        throw ShareUsage(base::tr("takes no directory"));
    const FileLock lock(share_lock_path, share_lock_patience);
    const ShareTable before = ShareTable::load();
    if (!before.shares.empty())
        commit(ShareTable(), before, installed_nfs_server().get());
    return 0;
}

} // namespace
} // namespace compat

int main(int argc, char **argv) {
    hostadm::base::speak_the_users_language();
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
        } catch (const hostadm::base::ShareUsage &error) {
            compat::print_complaint(name, error.what());
            return compat::status_usage;
        }
    });
}
