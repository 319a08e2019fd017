// SPDX-License-Identifier: MIT
// One durable edit of one field in a mount table of 1,000, 10,000 and 100,000 rows, beside what a user would
// pick instead and beside the floor that the machine sets. All contestants take turns on the same file
// system, so that a slow moment of the disk meets them all; each figure is the median of its rounds.
//
//   table_edit [FOLDER]    FOLDER, by default the current one, must lie on the disk to be measured
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "hostadm.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Row {
    std::string resource, mountpt, options;
};

Row row(int number, const std::string &options) {
    return {"server" + std::to_string(number % 97) + ":/export/root/client" + std::to_string(number),
            "/mnt/client" + std::to_string(number), options};
}

std::string line_of(const Row &row) {
    return row.resource + "\t" + row.mountpt + "\tnfs\t" + row.options + "\t0\t0\n";
}

std::string table_of(int rows) {
    std::string text = "# mounts of all clients\n";
    for (int number = 0; number < rows; ++number)
        text += line_of(row(number, "rw"));
    return text;
}

// Whether the edit was made: a contestant that failed quietly is no comparison.
bool shows(const fs::path &table, const Row &wanted) {
    std::ifstream in(table);
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(wanted.resource + "\t"))
            return line.find("\tnfs\t" + wanted.options + "\t") != std::string::npos;
    return false;
}

void check(bool good, const char *what) {
    if (!good)
        throw std::runtime_error(what);
}

// Reads the table, writes the same bytes to a file beside it, flushes and renames it; with the folder flushed
// as well the edit also survives a power cut.
void floor_edit(const fs::path &table, bool flush_folder) {
    const int in = open(table.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<char> text(fs::file_size(table));
    check(in >= 0 && read(in, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "read");
    close(in);
    const fs::path fresh = table.string() + ".floor";
    const int out = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    check(out >= 0 && write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
    check(fsync(out) == 0 && close(out) == 0, "fsync");
    check(std::rename(fresh.c_str(), table.c_str()) == 0, "rename");
    if (flush_folder) {
        const int folder = open(table.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        check(folder >= 0 && fsync(folder) == 0, "fsync of the folder");
        close(folder);
    }
}

bool plain_floor(const fs::path &table, const Row &) {
    floor_edit(table, false);
    return true;
}

bool durable_floor(const fs::path &table, const Row &) {
    floor_edit(table, true);
    return true;
}

bool our_edit(const fs::path &table, const Row &wanted) {
    std::string resource = wanted.resource;
    return mntadd4x(table.c_str(), resource.data(), wanted.mountpt.c_str(), "nfs", wanted.options.c_str(),
                    "0", "0") == 0;
}

// Line by line with streams, each line split into its words; flushed and renamed like the others.
bool naive_edit(const fs::path &table, const Row &wanted) {
    const fs::path fresh = table.string() + ".naive";
    {
        std::ifstream in(table);
        std::ofstream out(fresh);
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::vector<std::string> fields;
            for (std::string word; words >> word;)
                fields.push_back(word);
            if (!fields.empty() && fields[0] == wanted.resource)
                out << line_of(wanted);
            else
                out << line << "\n";
        }
    }
    const int file = open(fresh.c_str(), O_RDONLY | O_CLOEXEC);
    check(file >= 0 && fsync(file) == 0, "fsync");
    close(file);
    fs::rename(fresh, table);
    return true;
}

// A program does it. Neither of these two flushes anything.
bool command_edit(const std::string &command) {
    return std::system(("timeout 60 " + command + " >/dev/null 2>&1").c_str()) == 0;
}

bool sed_edit(const fs::path &table, const Row &wanted) {
    return command_edit("sed -i 's|^" + wanted.resource + "\\t.*|" + wanted.resource + "\\t" +
                        wanted.mountpt + "\\tnfs\\t" + wanted.options + "\\t0\\t0|' " + table.string());
}

bool augtool_edit(const fs::path &table, const Row &wanted) {
    return command_edit("augtool --noautoload --autosave --transform 'Fstab incl " + table.string() +
                        "' \"set /files" + table.string() + "/*[spec='" + wanted.resource + "']/opt " +
                        wanted.options + "\"");
}

struct Contestant {
    const char *name;
    bool is_floor; // writes, but edits nothing
    std::size_t rounds;
    bool (*edit)(const fs::path &table, const Row &wanted);
    std::vector<double> milliseconds;

    double median() {
        std::nth_element(milliseconds.begin(),
                         milliseconds.begin() + static_cast<std::ptrdiff_t>(milliseconds.size() / 2),
                         milliseconds.end());
        return milliseconds[milliseconds.size() / 2];
    }
};

void measure(const fs::path &folder, int rows) {
    const std::size_t many = rows > 10'000 ? 21 : 61;
    std::vector<Contestant> contestants{
        {"floor: read, write, fsync, rename", true, many, plain_floor, {}},
        {"durable floor: the folder's fsync too", true, many, durable_floor, {}},
        {"hostadm: mntadd4x", false, many, our_edit, {}},
        {"naive: streams and split lines", false, many, naive_edit, {}},
        {"sed -i (not flushed)", false, many, sed_edit, {}},
        {"augtool (not flushed)", false, rows > 1'000 ? 1u : 3u, augtool_edit, {}},
    };

    std::vector<fs::path> tables; // one each, so that nobody profits from another's work
    for (std::size_t index = 0; index < contestants.size(); ++index) {
        tables.push_back(folder / ("table" + std::to_string(index)));
        std::ofstream(tables.back(), std::ios::binary) << table_of(rows);
    }
    sync();
    for (std::size_t round = 0; round < many; ++round) {
        for (std::size_t index = 0; index < contestants.size(); ++index) {
            Contestant &contestant = contestants[index];
            if (round >= contestant.rounds)
                continue;
            const Row wanted = row(rows / 2, round % 2 == 0 ? "ro" : "rw");
            const auto start = Clock::now();
            const bool done = contestant.edit(tables[index], wanted);
            const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
            if (done && (contestant.is_floor || shows(tables[index], wanted)))
                contestant.milliseconds.push_back(taken.count());
            else
                contestant.rounds = 0;
        }
    }

    const double floor = contestants[0].median(), durable = contestants[1].median();
    const double ours = contestants[2].median();
    std::printf("\n%d rows, %ju bytes\n%-40s %12s %8s %9s %9s %8s\n", rows,
                static_cast<std::uintmax_t>(fs::file_size(tables[0])), "one edit of one field", "median ms",
                "rounds", "x floor", "x durable", "x ours");
    for (Contestant &contestant : contestants) {
        if (contestant.milliseconds.empty()) {
            std::printf("%-40s %12s\n", contestant.name, "failed, is missing or took over 60 s");
            continue;
        }
        const double median = contestant.median();
        std::printf("%-40s %12.3f %8zu %9.2f %9.2f %8.2f\n", contestant.name, median,
                    contestant.milliseconds.size(), median / floor, median / durable, median / ours);
    }
    std::fflush(stdout);
}

} // namespace

int main(int count, char **arguments) {
    std::string folder = fs::absolute(count > 1 ? arguments[1] : ".") / "table-edit-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror(folder.c_str());
        return 1;
    }
    int status = 0;
    try {
        for (const int rows : {1'000, 10'000, 100'000})
            measure(folder, rows);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "table_edit: %s failed\n", failure.what());
        status = 1;
    }
    fs::remove_all(folder);
    return status;
}
