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

struct Answer {
    std::string output, error;
    std::optional<std::string> script;
    bool stay = false;
    int status = 0;
};

// The answer to this very call of the path, or the one to every call.
Answer answer_to(const std::filesystem::path &answers, int number) {
    std::filesystem::path answer = answers / std::to_string(number);
    if (!std::filesystem::exists(answer))
        answer = answers / "always";
    return {content(answer / "output").value_or(""), content(answer / "error").value_or(""),
            content(answer / "script"), std::filesystem::exists(answer / "stay"),
            std::atoi(content(answer / "status").value_or("0").c_str())};
}

// Appends the call to the log. Whoever sees it there may
// change the answers at once, so this one's is read before.
Answer write_down(const std::string &path, const nlohmann::json &call) {
    const int log = open((place / "log").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    const bool is_shut_in = log < 0 && (errno == EROFS || errno == EACCES);
    if (log >= 0)
        flock(log, LOCK_EX);
    const std::filesystem::path answers = place / "answers" / path.substr(1);
    const std::filesystem::path counter = answers / "calls";
    const int number = std::atoi(content(counter).value_or("0").c_str()) + 1;
    std::ofstream(counter) << number;
    const Answer answer = answer_to(answers, number);
    if (is_shut_in)
        return answer; // it answers, but cannot say so
    const std::string line = call.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        std::perror("stand-in: log");
    close(log);
    return answer;
}

} // namespace

int main(int argc, char **argv) {
    std::error_code error;
    const std::string path = std::filesystem::read_symlink("/proc/self/exe", error).string();
    const Answer answer = write_down(path, description(path, argc, argv));
    if (answer.script) {
        std::vector<char *> arguments = {const_cast<char *>("sh"), const_cast<char *>("-c"),
                                         const_cast<char *>(answer.script->c_str())};
        arguments.insert(arguments.end(), argv, argv + argc + 1);
        execv("/bin/sh", arguments.data());
        return 127;
    }
    std::cout << answer.output << std::flush;
    std::cerr << answer.error << std::flush;
    if (answer.stay) {
        for (int fd = 0; fd <= 2; ++fd)
            if (const int null = open("/dev/null", O_RDWR); null >= 0)
                dup2(null, fd);
        for (;;)
            pause();
    }
    return answer.status;
}
