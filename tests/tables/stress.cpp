// SPDX-License-Identifier: MIT
// Many editors at once, and a number that must come out right: each of P processes adds N entries of its own
// to one table. Afterwards all P x N entries must be there, each once, the lines that nobody touched byte for
// byte as before, and nothing else in the folder. One run each for a mount table, a share table, a hosts
// table and a bootparams file.
//
//   stress [PROCESSES [EDITS [FOLDER]]]    by default 64 processes, 100 edits each, in a folder of /tmp
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "hostadm/table_edit.hpp"
#include "hostadm/tables.h"
#include "support/text_files.hpp"

namespace {

namespace fs = std::filesystem;

struct Entry {
    int process, edit;
    std::string name() const {
        return std::string("c").append(std::to_string(process)).append("x").append(std::to_string(edit));
    }
};

// Fills a column list and replaces the entry that it describes.
int replace(const std::string &table, const char *separators, const char *comment, int mode,
            const std::function<int(col_list *)> &columns) {
    col_list *list = nullptr;
    int status = new_col_list(&list, separators, comment, nullptr);
    if (status == 0)
        status = columns(list);
    if (status == 0)
        status = replace_db_entry(table.c_str(), list, mode);
    free_col_list(list);
    return status;
}

int fixed(col_list *list, int position, const char *match, const char *value, int flag = 0) {
    return new_column(list, position, position, position, match, value, flag);
}

// A kind of table: the lines it has before, how an entry is added, and the line that this must give.
struct Kind {
    const char *name;
    std::string untouched;
    std::function<int(const std::string &table, const Entry &entry)> add;
    std::function<std::string(const Entry &entry)> line;
};

int add_mount(const std::string &table, const Entry &entry) {
    const std::string resource = "server:/export/" + entry.name(), mountpt = "/mnt/" + entry.name();
    return replace(table, "\t ", "#", 3, [&](col_list *list) {
        int status = fixed(list, 0, resource.c_str(), resource.c_str());
        const char *values[] = {"-", mountpt.c_str(), "nfs", "-", "yes", "rw"};
        for (int position = 1; status == 0 && position <= 6; ++position)
            status = fixed(list, position, nullptr, values[position - 1]);
        return status;
    });
}

int add_share(const std::string &table, const Entry &entry) {
    const std::string path = "/export/root/" + entry.name(), options = "rw=" + entry.name();
    return replace(table, " \t", nullptr, 11, [&](col_list *list) {
        int status = fixed(list, 0, "share", "share");
        status = status == 0 ? fixed(list, 1, "-F", "-F") : status;
        status = status == 0 ? fixed(list, 2, "nfs", "nfs") : status;
        status = status == 0 ? new_column(list, 3, 1, 3, nullptr, "-o", 0) : status;
        status = status == 0 ? new_column(list, 4, 2, 4, nullptr, options.c_str(), 0) : status;
        return status == 0 ? new_column(list, 5, 1, 7, path.c_str(), path.c_str(), 0) : status;
    });
}

std::string address(const Entry &entry) {
    return "10." + std::to_string(entry.process) + "." + std::to_string(entry.edit / 250) + "." +
           std::to_string(entry.edit % 250);
}

int add_host(const std::string &table, const Entry &entry) {
    const std::string key = address(entry), names = entry.name() + " alias-" + entry.name();
    return replace(table, "\t ", "#", 3, [&](col_list *list) {
        const int status = fixed(list, 0, key.c_str(), key.c_str());
        return status == 0 ? fixed(list, 1, nullptr, names.c_str(), 1) : status;
    });
}

std::string bootparams_line(const Entry &entry) {
    return entry.name() + " root=server:/export/root/" + entry.name() + " boottype=:in";
}

int add_bootparams(const std::string &file, const Entry &entry) {
    return hostadm::tables::edit_file(file, [&](std::string &text) {
        text += bootparams_line(entry) + "\n";
        return 0;
    });
}

std::vector<Kind> kinds() {
    return {
        {"mount table",
         "#device\tfsck\tmount\n\n  /dev/sda1   -  /\text4 1 no\t-   \n#server:/export/c1x1 - /old nfs\n",
         add_mount,
         [](const Entry &entry) {
             return "server:/export/" + entry.name() + "\t-\t/mnt/" + entry.name() + "\tnfs\t-\tyes\trw";
         }},
        {"share table",
         "# shares\n\n#share -F nfs -o rw /export/root/c1x1\nshare  -F  nfs -o ro -d \"all # of it\" "
         "/export\n",
         add_share,
         [](const Entry &entry) {
             return "share -F nfs -o rw=" + entry.name() + " /export/root/" + entry.name();
         }},
        {"hosts table", "127.0.0.1\tlocalhost\r\n\n# 10.1.0.1 not this\n::1  ip6-localhost # loopback\n",
         add_host,
         [](const Entry &entry) { return address(entry) + "\t" + entry.name() + " alias-" + entry.name(); }},
        {"bootparams file",
         "# clients\nold root=server:/export/root/old \\\n    swap=server:/export/swap/old\n\n",
         add_bootparams, bootparams_line},
    };
}

// What one process does; its exit status says whether all went well.
int run_editor(const Kind &kind, const std::string &table, int process, int edits, int start) {
    char word;
    while (read(start, &word, 1) > 0) // until all are there
        ;
    for (int edit = 1; edit <= edits; ++edit) {
        const int status = kind.add(table, {process, edit});
        if (status != 0) {
            std::fprintf(stderr, "%s: process %d, edit %d: status %d\n", kind.name, process, edit, status);
            return 1;
        }
    }
    return 0;
}

int failed_editors(const Kind &kind, const std::string &table, int processes, int edits) {
    int start[2];
    if (pipe(start) != 0)
        throw std::runtime_error("no pipe");
    std::fflush(nullptr);
    std::vector<pid_t> children;
    for (int process = 1; process <= processes; ++process) {
        const pid_t child = fork();
        if (child == 0) {
            close(start[1]);
            _exit(run_editor(kind, table, process, edits, start[0]));
        }
        if (child > 0)
            children.push_back(child);
    }
    close(start[0]);
    close(start[1]); // go
    int failed = processes - static_cast<int>(children.size());
    for (const pid_t child : children) {
        int outcome = 0;
        if (waitpid(child, &outcome, 0) != child || outcome != 0)
            ++failed;
    }
    return failed;
}

// True when everything came out right; prints what did.
bool run(const Kind &kind, const fs::path &folder, int processes, int edits) {
    const fs::path table = folder / "table";
    std::ofstream(table, std::ios::binary) << kind.untouched;
    const auto begin = std::chrono::steady_clock::now();
    const int failed = failed_editors(kind, table, processes, edits);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;

    const std::string text = tests::content(table);
    const bool untouched = text.starts_with(kind.untouched);
    std::map<std::string, int> lines;
    std::istringstream rest(untouched ? text.substr(kind.untouched.size()) : text);
    for (std::string line; std::getline(rest, line);)
        ++lines[line];
    int present = 0, duplicates = 0;
    for (int process = 1; process <= processes; ++process) {
        for (int edit = 1; edit <= edits; ++edit) {
            const auto line = lines.find(kind.line({process, edit}));
            if (line == lines.end())
                continue;
            ++present;
            duplicates += line->second - 1;
            lines.erase(line);
        }
    }
    const auto files = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    fs::remove(table);
    std::printf("%-16s %d of %d present, %d duplicates, %zu lines that nobody wrote, untouched lines %s, %td "
                "other files, "
                "%d processes failed (%.1f s)\n",
                kind.name, present, processes * edits, duplicates, lines.size(),
                untouched ? "identical" : "CHANGED", files - 1, failed, seconds.count());
    return present == processes * edits && duplicates == 0 && lines.empty() && untouched && files == 1 &&
           failed == 0;
}

} // namespace

int main(int count, char **arguments) {
    const int processes = count > 1 ? std::atoi(arguments[1]) : 64;
    const int edits = count > 2 ? std::atoi(arguments[2]) : 100;
    std::string folder = std::string(count > 3 ? arguments[3] : "/tmp") + "/hostadm-stress-XXXXXX";
    if (processes < 1 || processes > 250 || edits < 1 || edits > 50'000) {
        std::fprintf(stderr, "usage: stress [PROCESSES 1..250 [EDITS 1..50000 [FOLDER]]]\n");
        return 2;
    }
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror(folder.c_str());
        return 1;
    }
    bool good = true;
    for (const Kind &kind : kinds())
        good = run(kind, folder, processes, edits) && good;
    fs::remove_all(folder);
    return good ? 0 : 1;
}
