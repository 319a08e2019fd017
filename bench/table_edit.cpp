// SPDX-License-Identifier: MIT
// One durable edit of one field in a mount table of 1,000, 10,000 and 100,000 rows: the library's mntadd4x,
// beside sed and augtool (which flush nothing), a naive version with streams, and the floor: read, write,
// fsync and rename of the same bytes. An edit of ours flushes the folder too; "durable floor" does so as
// well. The tables lie in /var/tmp, which is on a disk where /tmp may be memory.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "hostadm.h"

namespace {

namespace fs = std::filesystem;

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
    return std::system(("timeout 300 " + command + " >/dev/null 2>&1").c_str()) == 0;
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

using Edit = bool (*)(const fs::path &table, const Row &wanted);

// Edits a row in the middle of the table to and fro.
void run(benchmark::State &state, const fs::path &folder, Edit edit, bool is_floor) {
    const int rows = static_cast<int>(state.range(0));
    const fs::path table = folder / "table";
    std::ofstream(table, std::ios::binary) << table_of(rows);
    sync();
    Row wanted = row(rows / 2, "rw");
    try {
        for (auto _ : state) {
            wanted.options = wanted.options == "rw" ? "ro" : "rw";
            if (!edit(table, wanted)) {
                state.SkipWithError("the edit failed");
                break;
            }
        }
        if (!is_floor && !shows(table, wanted))
            state.SkipWithError("the edit was not made");
    } catch (const std::exception &failure) {
        state.SkipWithError(failure.what());
    }
    fs::remove(table);
}

} // namespace

int main(int argc, char **argv) {
    std::string folder = "/var/tmp/hostadm-table-edit-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror(folder.c_str());
        return EXIT_FAILURE;
    }
    const auto add = [&](const char *variant, Edit edit, bool is_floor, std::vector<int> sizes) {
        auto *work = benchmark::RegisterBenchmark(
            (std::string("edit one field/") + variant).c_str(),
            [=](benchmark::State &state) { run(state, folder, edit, is_floor); });
        for (const int rows : sizes)
            work->Arg(rows);
        work->UseRealTime()->Unit(benchmark::kMillisecond);
    };
    const std::vector<int> all = {1'000, 10'000, 100'000};
    add("hostadm", our_edit, false, all);
    add("floor", plain_floor, true, all);
    add("durable floor", durable_floor, true, all);
    add("naive", naive_edit, false, all);
    add("sed -i", sed_edit, false, all);
    add("augtool", augtool_edit, false, {1'000, 10'000}); // takes more than five minutes at 100,000
    // The variants take turns, so that a slow moment of the disk meets them all.
    std::vector<char *> arguments(argv, argv + argc);
    std::string take_turns = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, take_turns.data());
    int count = argc + 1;
    benchmark::Initialize(&count, arguments.data());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(folder);
}
