// SPDX-License-Identifier: MIT
#include "support/fake_commands.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <map>

#include "support/fake_framework.hpp"
#include "support/fake_platform.hpp"
#include "support/fake_tables.hpp"

namespace {

fakes::Commands state;
std::map<std::FILE *, fakes::Answer> scripted; // open stand-in streams

fakes::Answer answer_to(const std::string &line) {
    for (auto answer = state.answers.begin(); answer != state.answers.end(); ++answer) {
        if (line.find(answer->contains) == std::string::npos)
            continue;
        const fakes::Answer found = *answer;
        if (found.once)
            state.answers.erase(answer);
        return found;
    }
    return {};
}

void remember(const char *command) {
    state.lines.emplace_back(command);
    if (state.lines.size() == state.exit_after)
        std::_Exit(9);
}

template <typename Function> Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace fakes {

Commands &commands() {
    return state;
}
void reset_commands() {
    state = Commands{};
}

void reset_all() {
    reset_framework();
    reset_tables();
    reset_platform();
    reset_commands();
}

} // namespace fakes

extern "C" {

int system(const char *command) {
    remember(command);
    if (state.real)
        return real<int(const char *)>("system")(command);
    return answer_to(command).status;
}

FILE *popen(const char *command, const char *mode) {
    remember(command);
    if (state.real)
        return real<FILE *(const char *, const char *)>("popen")(command, mode);
    const fakes::Answer answer = answer_to(command);
    if (!answer.starts) {
        errno = answer.error != 0 ? answer.error : ENOMEM;
        return nullptr;
    }
    std::FILE *stream = std::tmpfile();
    std::fwrite(answer.output.data(), 1, answer.output.size(), stream);
    std::rewind(stream);
    scripted[stream] = answer;
    ++state.open_streams;
    return stream;
}

int pclose(FILE *stream) {
    const auto found = scripted.find(stream);
    if (found == scripted.end())
        return real<int(FILE *)>("pclose")(stream);
    const fakes::Answer answer = found->second;
    scripted.erase(found);
    std::fclose(stream);
    --state.open_streams;
    if (answer.status == -1)
        errno = answer.error;
    return answer.status;
}
}
