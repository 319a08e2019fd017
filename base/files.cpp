// SPDX-License-Identifier: MIT
#include "base/files.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/descriptor.hpp"

namespace hostadm::base {

namespace {

int defect_of_type(const struct stat &file) {
    return S_ISDIR(file.st_mode) ? EISDIR : S_ISREG(file.st_mode) ? 0 : ENOTSUP;
}

FileText failed(int error) {
    return {.text = {}, .error = error};
}

// Removes the file that did not become the new one.
class Aside {
public:
    explicit Aside(const std::string &path)
        : path_(path + ".XXXXXX"), file_(mkostemp(path_.data(), O_CLOEXEC)) {}
    ~Aside() {
        if (was_made_ && !path_.empty())
            unlink(path_.c_str());
    }
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;

    Descriptor &file() { return file_; }
    bool install(const std::string &path) {
        if (rename(path_.c_str(), path.c_str()) != 0)
            return false;
        path_.clear();
        return true;
    }

private:
    std::string path_;
    Descriptor file_;
    bool was_made_ = file_.is_open();
};

} // namespace

bool FileText::is_missing() const {
    return error == ENOENT || error == ENOTDIR;
}

FileText read_file(const std::string &path, std::size_t limit) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) // first: to open a device can already do something to it
        return failed(errno);
    if (const int defect = defect_of_type(status); defect != 0)
        return failed(defect);
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file || fstat(file.get(), &status) != 0)
        return failed(errno);
    if (const int defect = defect_of_type(status); defect != 0)
        return failed(defect);

    FileText result;
    char piece[65536];
    for (;;) {
        const ssize_t got = read(file.get(), piece, sizeof piece);
        if (got == -1 && errno == EINTR)
            continue;
        if (got == -1)
            return failed(errno);
        if (got == 0)
            return result;
        if (result.text.size() + static_cast<std::size_t>(got) > limit)
            return failed(EFBIG);
        result.text.append(piece, static_cast<std::size_t>(got));
    }
}

std::string file_contents(const std::string &path) {
    return read_file(path).text;
}

int write_file(const std::string &path, std::string_view text, mode_t mode) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory)
        return errno;
    Aside aside(path);
    if (!aside.file() || !write_all(aside.file().get(), text) || fchmod(aside.file().get(), mode) != 0 ||
        fsync(aside.file().get()) != 0)
        return errno;
    if (const int error = aside.file().close(); error != 0)
        return error;
    if (!aside.install(path) || fsync(directory.get()) != 0)
        return errno;
    return 0;
}

} // namespace hostadm::base
