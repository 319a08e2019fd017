// SPDX-License-Identifier: MIT
// A command that writes down how it was called and answers as it was told; standin.hpp puts copies of it in
// place.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

namespace {

const std::filesystem::path place = "/standin";

std::optional<std::string> content(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

nlohmann::json open_descriptors() {
    nlohmann::json open = nlohmann::json::object();
    DIR *directory = opendir("/proc/self/fd");
    while (const dirent *entry = directory == nullptr ? nullptr : readdir(directory)) {
        const std::string name = entry->d_name;
        std::error_code error;
        const auto target = std::filesystem::read_symlink("/proc/self/fd/" + name, error);
        if (!error && name != std::to_string(dirfd(directory)))
            open[name] = target.string();
    }
    if (directory != nullptr)
        closedir(directory);
    return open;
}

nlohmann::json description(const std::string &path, int argc, char **argv) {
    nlohmann::json call = {{"path", path}, {"pid", getpid()}, {"descriptors", open_descriptors()}};
    call["arguments"] = std::vector<std::string>(argv, argv + argc);
    std::error_code error;
    call["directory"] = std::filesystem::current_path(error).string();
    call["environment"] = nlohmann::json::object();
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos)
            call["environment"][text.substr(0, equals)] = text.substr(equals + 1);
    }
    return call;
}

// Appends the call to the log and returns how many calls of this path stand there, this one included.
int write_down(const std::string &path, const nlohmann::json &call) {
    const int log = open((place / "log").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (log < 0)
        return 1;
    flock(log, LOCK_EX);
    const std::string line = call.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        std::perror("stand-in: log");
    const std::filesystem::path counter = place / "answers" / path.substr(1) / "calls";
    const int number = std::atoi(content(counter).value_or("0").c_str()) + 1;
    std::ofstream(counter) << number;
    close(log);
    return number;
}

} // namespace

int main(int argc, char **argv) {
    std::error_code error;
    const std::string path = std::filesystem::read_symlink("/proc/self/exe", error).string();
    const int number = write_down(path, description(path, argc, argv));
    // The answer to this very call, or the one to every call.
    const std::filesystem::path answers = place / "answers" / path.substr(1);
    std::filesystem::path answer = answers / std::to_string(number);
    if (!std::filesystem::exists(answer))
        answer = answers / "always";
    if (const auto script = content(answer / "script")) {
        std::vector<char *> arguments = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                                         const_cast<char *>(script->c_str())};
        arguments.insert(arguments.end(), argv, argv + argc + 1);
        execv("/bin/sh", arguments.data());
        return 127;
    }
    std::cout << content(answer / "output").value_or("") << std::flush;
    std::cerr << content(answer / "error").value_or("") << std::flush;
    if (std::filesystem::exists(answer / "stay")) {
        for (int fd = 0; fd <= 2; ++fd)
            if (const int null = open("/dev/null", O_RDWR); null >= 0)
                dup2(null, fd);
        for (;;)
            pause();
    }
    return std::atoi(content(answer / "status").value_or("0").c_str());
}
