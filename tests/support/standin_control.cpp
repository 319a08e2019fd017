// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

#include "support/eventually.hpp"
#include "support/standin.hpp"

namespace fs = std::filesystem;

namespace {

const fs::path base = "/standin";

void only_in_sandbox() {
    if (std::getenv("HOSTADM_SANDBOX") == nullptr)
        throw std::runtime_error("stand-ins are for a throwaway root only: run this with in-sandbox");
}

// The path as the stand-in sees its own: a stand-in in /sbin
// stands in /usr/sbin where the one is a link to the other.
fs::path resolved(const std::string &path) {
    const fs::path plain(path);
    return fs::weakly_canonical(plain.parent_path()) / plain.filename();
}

void write(const fs::path &path, const std::string &content) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << content << std::flush))
        throw std::runtime_error("cannot write " + path.string());
}

void write_answer(const fs::path &directory, const standin::Answer &answer) {
    fs::remove_all(directory);
    fs::create_directories(directory);
    write(directory / "output", answer.output);
    write(directory / "error", answer.error);
    write(directory / "status", std::to_string(answer.status));
    if (answer.stay)
        write(directory / "stay", "");
    if (!answer.script.empty())
        write(directory / "script", answer.script);
}

// No stand-in is in the middle of writing its call down.
class LogLock {
public:
    LogLock() : log_(open((base / "log").c_str(), O_RDONLY | O_CLOEXEC)) {
        if (log_ >= 0)
            flock(log_, LOCK_SH);
    }
    ~LogLock() {
        if (log_ >= 0)
            close(log_);
    }
    LogLock(const LogLock &) = delete;
    LogLock &operator=(const LogLock &) = delete;

private:
    int log_;
};

fs::path answers_of(const std::string &path) {
    return base / "answers" / resolved(path).relative_path();
}

} // namespace

namespace standin {

void place(const std::string &path, const Answer &what) {
    only_in_sandbox();
    fs::create_directories(fs::path(path).parent_path());
    const fs::path target = resolved(path);
    fs::remove(target);
    fs::copy_file(HOSTADM_STANDIN, target);
    answer(path, what);
}

void start(const std::string &path, const std::string &arguments) {
    only_in_sandbox();
    const std::size_t before = calls(path).size();
    if (std::system((path + ' ' + arguments + " &").c_str()) != 0)
        throw std::runtime_error("cannot start " + path);
    wait_for_calls(path, before + 1);
}

void wait_for_calls(const std::string &path, std::size_t count) {
    if (!tests::eventually([&] { return calls(path).size() >= count; }))
        throw std::runtime_error(path + " was not called");
}

void answer(const std::string &path, const Answer &what) {
    only_in_sandbox();
    write_answer(answers_of(path) / "always", what);
}

void answer_call(const std::string &path, int number, const Answer &what) {
    only_in_sandbox();
    write_answer(answers_of(path) / std::to_string(number), what);
}

std::vector<Call> calls() {
    std::vector<Call> all;
    const LogLock lock;
    std::ifstream log(base / "log");
    for (std::string line; std::getline(log, line);) {
        const nlohmann::json entry = nlohmann::json::parse(line);
        Call call{.path = entry.at("path"),
                  .pid = entry.at("pid"),
                  .arguments = entry.at("arguments"),
                  .environment = entry.at("environment"),
                  .descriptors = {},
                  .directory = entry.at("directory")};
        for (const auto &[number, target] : entry.at("descriptors").items())
            call.descriptors[std::stoi(number)] = target;
        all.push_back(std::move(call));
    }
    return all;
}

std::vector<Call> calls(const std::string &path) {
    std::vector<Call> some = calls();
    std::erase_if(some, [wanted = resolved(path).string()](const Call &call) { return call.path != wanted; });
    return some;
}

std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (const Call &call : calls()) {
        std::string line = call.path;
        for (std::size_t i = 1; i < call.arguments.size(); ++i)
            line += ' ' + call.arguments[i];
        all.push_back(std::move(line));
    }
    return all;
}

void reset() {
    only_in_sandbox();
    fs::remove_all(base);
    fs::create_directories(base);
    fs::permissions(base, fs::perms::all);
}

} // namespace standin
