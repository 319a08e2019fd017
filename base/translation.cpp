// SPDX-License-Identifier: MIT
#include "base/translation.hpp"

#include <cerrno>
#include <clocale>
#include <libintl.h>

#include "base/environment.hpp"
#include "base/language.hpp"
#include "base/own_place.hpp"

namespace hostadm::base {

namespace {

constexpr const char *domain = "hostadm";

// Programs, libraries and methods lie up to four folders below the prefix.
std::string catalogue_folder() {
    std::string prefix = own_folder();
    for (int level = 0; level < 4 && !prefix.empty(); ++level) {
        prefix = folder_of(prefix);
        if (std::string folder = prefix + "/share/locale"; is_folder(folder))
            return folder;
    }
    return HOSTADM_LOCALE_DIRECTORY;
}

void find_catalogue() {
    static const bool found = [] {
        bindtextdomain(domain, catalogue_folder().c_str());
        // Answers are exchanged in UTF-8, whatever the terminal takes.
        bind_textdomain_codeset(domain, "UTF-8");
        return true;
    }();
    static_cast<void>(found);
}

// A text is often made to tell what errno says.
class KeptErrno {
public:
    KeptErrno() = default;
    ~KeptErrno() { errno = value_; }
    KeptErrno(const KeptErrno &) = delete;
    KeptErrno &operator=(const KeptErrno &) = delete;

private:
    int value_ = errno;
};

bool is_digit(char c) {
    return c >= '1' && c <= '9';
}

} // namespace

std::string filled(std::string_view text, std::initializer_list<Piece> pieces) {
    std::string all;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool is_place =
            text[at] == '{' && at + 2 < text.size() && is_digit(text[at + 1]) && text[at + 2] == '}';
        const std::size_t number = is_place ? static_cast<std::size_t>(text[at + 1] - '1') : pieces.size();
        if (number < pieces.size()) {
            all += (pieces.begin() + number)->text();
            at += 2;
        } else {
            all += text[at];
        }
    }
    return all;
}

const char *tr(const char *text) {
    // The empty text would find the catalogue's head.
    if (*text == '\0')
        return text;
    const KeptErrno kept;
    find_catalogue();
    return dgettext(domain, text);
}

const char *plural(unsigned long count, const char *one, const char *many) {
    const KeptErrno kept;
    find_catalogue();
    return dngettext(domain, one, many, count);
}

std::string language_of_texts() {
    const KeptErrno kept;
    find_catalogue();
    // The head of a catalogue stands in the place of the empty text.
    const std::string_view head = dgettext(domain, ""), key = "Language: ";
    std::size_t begin = head.find(key);
    if (begin == head.npos)
        return "";
    begin += key.size();
    return std::string(head.substr(begin, head.find('\n', begin) - begin));
}

void speak_the_users_language() {
    drop_ways_to_foreign_texts();
    find_catalogue();
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    // All catalogues are loaded now: later this process may be in a root that others write to.
    constexpr const char *in_no_catalogue = "\1";
    for (const char *each : {domain, "system_msgs", "libc"})
        dgettext(each, in_no_catalogue);
}

} // namespace hostadm::base
