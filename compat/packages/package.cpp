// SPDX-License-Identifier: MIT
#include "compat/packages/package.hpp"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <unistd.h>

#include "base/text.hpp"
#include "base/translation.hpp"
#include "compat/support/failure.hpp"

namespace compat {

using hostadm::base::Descriptor;

namespace {

template <typename Number> std::optional<Number> number(std::string_view word, int base = 10) {
    Number value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    if (error != std::errc() || end != word.data() + word.size())
        return std::nullopt;
    return value;
}

// Takes the words of a line one after another.
class Words {
public:
    explicit Words(std::string_view line) : words_(hostadm::base::words_of(line)) {}
    std::string next() {
        if (at_ == words_.size())
            throw Failure(hostadm::base::tr("too few words"));
        return std::string(words_[at_++]);
    }
    template <typename Number> Number next_number(int base = 10) {
        const std::string word = next();
        if (const auto value = number<Number>(word, base))
            return *value;
        throw Failure(hostadm::base::tr("\"{1}\" is no number", word));
    }
    bool next_is_number() const { return at_ < words_.size() && number<unsigned>(words_[at_]).has_value(); }
    bool empty() const { return at_ == words_.size(); }

private:
    std::vector<std::string_view> words_;
    size_t at_ = 0;
};

// Without empty and "." words; throws when a word leads upwards.
std::string clean_path(const std::string &path) {
    std::string clean;
    for (const std::string_view part : hostadm::base::split(path, '/')) {
        if (part == "..")
            throw Failure(hostadm::base::tr("the path {1} leads out of its directory", path));
        if (!part.empty() && part != ".")
            clean.append("/").append(part);
    }
    return clean.empty() ? "/" : clean;
}

// Of pkginfo and pkgmap.
constexpr std::size_t largest_text = 64U << 20U;

hostadm::base::Beneath opened(const std::string &directory) {
    Descriptor package(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!package)
        throw Failure(hostadm::base::tr("{1}: no such package ({2})", directory, std::strerror(errno)));
    return {std::move(package), directory};
}

} // namespace

void Checksum::add(std::string_view bytes) {
    for (const char byte : bytes)
        total_ += static_cast<unsigned char>(byte);
}

unsigned Checksum::value() const {
    const uint64_t low = total_ & 0xffffffffU;
    const uint64_t folded = (low & 0xffffU) + (low >> 16U);
    return static_cast<unsigned>((folded & 0xffffU) + (folded >> 16U));
}

Measure measure(const Descriptor &file, const std::string &path, uint64_t most,
                const std::function<void()> &reading) {
    Checksum sum;
    Measure result;
    char piece[65536];
    for (ssize_t count; result.size <= most && (count = read(file.get(), piece, sizeof piece)) != 0;) {
        if (count < 0 && errno != EINTR)
            fail_with_errno(path);
        reading();
        if (count < 0)
            continue;
        sum.add({piece, static_cast<size_t>(count)});
        result.size += static_cast<size_t>(count);
    }
    result.sum = sum.value();
    return result;
}

bool is_package_name(const std::string &name) {
    return !name.empty() && name.size() <= 64 && std::isalpha(static_cast<unsigned char>(name[0])) &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_") ==
               std::string::npos;
}

std::map<std::string, std::string> parse_settings(std::string_view text) {
    std::map<std::string, std::string> settings;
    for (const std::string_view line : hostadm::base::split(text, '\n')) {
        const size_t equals = line.find('=');
        if (line.starts_with('#') || equals == line.npos)
            continue;
        std::string_view value = line.substr(equals + 1);
        while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back())))
            value.remove_suffix(1);
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
            value.front() == value.back())
            value = value.substr(1, value.size() - 2);
        settings[std::string(line.substr(0, equals))] = value;
    }
    return settings;
}

Package::Package(const std::string &directory, const std::string &base) : files_(opened(directory)) {
    for (const auto &[file, text] : {std::pair{"pkginfo", &info_text_}, std::pair{"pkgmap", &map_text_}}) {
        if (!files_.is_file(file))
            throw Failure(hostadm::base::tr("{1}: no package, it has no file {2}", directory, file));
        *text = files_.read(file, largest_text);
    }
    settings_ = parse_settings(info_text_);
    name_ = setting("PKG");
    if (!is_package_name(name_))
        throw Failure(hostadm::base::tr("{1}/pkginfo: PKG=\"{2}\" is no package name", directory, name_));
    for (const char *const needed : {"ARCH", "VERSION"})
        if (setting(needed).empty())
            fail(hostadm::base::tr("pkginfo has no {1}", needed));
    const std::string wanted = base.empty() ? setting("BASEDIR", "/") : base;
    if (!wanted.starts_with('/'))
        fail(hostadm::base::tr("the base directory {1} is not absolute", wanted));
    base_ = clean_path(wanted);
    settings_["BASEDIR"] = base_;
    settings_["PKGINST"] = name_;
    parse_map();
    refuse_scripts();
}

void Package::fail(const std::string &text) const {
    throw Failure(name_ + ": " + text);
}

std::string Package::setting(const std::string &key, const std::string &otherwise) const {
    const auto found = settings_.find(key);
    return found == settings_.end() || found->second.empty() ? otherwise : found->second;
}

// Replaces "$NAME" at the beginning of the word or of a part of a path by the package's setting.
std::string Package::expand(const std::string &word) const {
    std::string result;
    for (size_t at = 0; at < word.size();) {
        if (word[at] != '$' || (at > 0 && word[at - 1] != '/')) {
            result += word[at++];
            continue;
        }
        size_t end = at + 1;
        while (end < word.size() && (std::isalnum(static_cast<unsigned char>(word[end])) || word[end] == '_'))
            ++end;
        const std::string value = setting(word.substr(at + 1, end - at - 1));
        if (value.empty())
            throw Failure(hostadm::base::tr("pkginfo has no value for {1}", word.substr(at, end - at)));
        result += value;
        at = end;
    }
    return result;
}

std::string Package::place_of(const std::string &written) const {
    const std::string expanded = expand(written);
    return clean_path(expanded.starts_with('/') ? expanded : base_ + "/" + expanded);
}

Entry Package::parse_line(std::string_view line) const {
    Words words(line);
    Entry entry;
    if (words.next_is_number())
        entry.part = words.next_number<unsigned>();
    const std::string type = words.next();
    if (type.size() != 1 || std::strchr("fevdxslbcpi", type[0]) == nullptr)
        throw Failure(hostadm::base::tr("unknown type \"{1}\"", type));
    entry.type = type[0];
    if (entry.type != 'i')
        entry.class_name = words.next();
    entry.written = words.next();
    if (entry.type == 's' || entry.type == 'l') {
        const size_t equals = entry.written.find('=');
        if (equals == std::string::npos || equals + 1 == entry.written.size())
            throw Failure(hostadm::base::tr("the link {1} has no target", entry.written));
        entry.target = entry.written.substr(equals + 1);
        entry.written.resize(equals);
        if (entry.type == 'l')
            entry.target = place_of(entry.target);
    }
    if (entry.type == 'i') {
        if (entry.written.find('/') != std::string::npos)
            throw Failure(hostadm::base::tr("the information file {1} has a directory", entry.written));
    } else {
        entry.path = place_of(entry.written);
        if (entry.path == "/" && !entry.is_directory())
            throw Failure(hostadm::base::tr("\"{1}\" is no place for a file", entry.written));
    }
    if (entry.type == 'b' || entry.type == 'c') {
        entry.major = words.next_number<unsigned>();
        entry.minor = words.next_number<unsigned>();
    }
    if (std::strchr("fevdxbcp", entry.type) != nullptr) {
        const std::string mode = expand(words.next());
        if (mode != "?") {
            entry.mode = number<mode_t>(mode, 8);
            if (!entry.mode || *entry.mode > 07777)
                throw Failure(hostadm::base::tr("\"{1}\" is no mode", mode));
        }
        entry.owner = expand(words.next());
        entry.group = expand(words.next());
    }
    if (entry.is_file() || entry.type == 'i') {
        entry.size = words.next_number<uint64_t>();
        entry.sum = words.next_number<unsigned>();
        const std::string modified = words.empty() ? "?" : words.next();
        entry.modified = number<time_t>(modified);
        if (!entry.modified && modified != "?" && modified != "NONE")
            throw Failure(hostadm::base::tr("\"{1}\" is no time", modified));
    }
    if (!words.empty())
        throw Failure(hostadm::base::tr("too many words"));
    return entry;
}

void Package::parse_map() {
    std::set<std::string> paths;
    int number = 0;
    for (const std::string_view line : hostadm::base::split(map_text_, '\n')) {
        ++number;
        if (line.empty() || line[0] == ':' || line[0] == '#')
            continue;
        try {
            Entry entry = parse_line(line);
            if (entry.type == 'i')
                information_.push_back(std::move(entry));
            else if (!paths.insert(entry.path).second)
                throw Failure(hostadm::base::tr("{1} stands there twice", entry.path));
            else
                entries_.push_back(std::move(entry));
        } catch (const Failure &error) {
            fail(hostadm::base::tr("pkgmap line {1}: {2}", number, error.what()));
        }
    }
    if (information_.empty() && entries_.empty())
        fail(hostadm::base::tr("pkgmap lists nothing; is it damaged?"));
}

// Scripts were written for another system, and would run as root on this one.
void Package::refuse_scripts() const {
    static const std::set<std::string> scripts = {"request", "checkinstall", "preinstall", "postinstall"};
    for (const Entry &entry : information_)
        if (scripts.contains(entry.written) || entry.written.starts_with("i."))
            fail(hostadm::base::tr(
                "it has the script {1}; packages with installation scripts are not supported",
                entry.written));
    static const std::set<std::string> transforming = {"sed", "awk", "build"};
    for (const Entry &entry : entries_)
        if (transforming.contains(entry.class_name))
            fail(hostadm::base::tr("{1} is of the class {2}, whose files are programs; that is not supported",
                                   entry.written, entry.class_name));
}

Descriptor Package::open_source(const Entry &entry) const {
    std::vector<std::string> candidates;
    if (entry.type == 'i')
        candidates = entry.written == "pkginfo" ? std::vector<std::string>{"pkginfo"}
                                                : std::vector<std::string>{"install/" + entry.written};
    else {
        const std::string part = std::string(".").append(std::to_string(entry.part)) + "/";
        const std::string tree = entry.written.starts_with('/') ? "root" : "reloc";
        const std::string below = entry.written.starts_with('/') ? entry.written.substr(1) : entry.written;
        candidates = {tree + part + below, tree + "/" + below};
        // "$BASEDIR/etc/x" may lie under its full name or under the name that is left without the variable.
        if (below.starts_with("$") && below.find('/') != std::string::npos)
            candidates.push_back("reloc/" + below.substr(below.find('/') + 1));
    }
    for (const std::string &candidate : candidates)
        if (files_.is_file(candidate))
            return files_.open_file(candidate);
    fail(hostadm::base::tr("the file {1} is missing, or not a plain file in the package", entry.written));
}

std::string Package::information_text(const Entry &entry) const {
    const auto text = hostadm::base::read_stream(open_source(entry).get());
    if (!text)
        fail_with_errno(hostadm::base::tr("cannot read {1}", entry.written));
    return *text;
}

void Package::verify(const std::function<void()> &reading) const {
    const auto verify_one = [&](const Entry &entry) {
        const Measure found = measure(open_source(entry), entry.written, all_of_it, reading);
        if (found.size != entry.size)
            fail(hostadm::base::tr("the file {1} is damaged: it has {2} bytes instead of {3}", entry.written,
                                   found.size, entry.size));
        if (found.sum != entry.sum)
            fail(hostadm::base::tr("the file {1} is damaged: its checksum is {2} instead of {3}",
                                   entry.written, found.sum, entry.sum));
    };
    for (const Entry &entry : information_)
        verify_one(entry);
    for (const Entry &entry : entries_)
        if (entry.is_file())
            verify_one(entry);
}

std::vector<std::string> Package::prerequisites() const {
    std::vector<std::string> names;
    for (const Entry &entry : information_) {
        if (entry.written != "depend")
            continue;
        hostadm::base::for_each_line(information_text(entry), [&](std::string_view line) {
            const std::vector<std::string_view> words = hostadm::base::words_of(line);
            if (words.size() >= 2 && words[0] == "P")
                names.emplace_back(words[1]);
        });
    }
    return names;
}

} // namespace compat
