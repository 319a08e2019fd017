// SPDX-License-Identifier: MIT
#include "server/bootparams_entries.hpp"

#include <algorithm>

#include "base/text.hpp"

namespace hostadm::server {

namespace {

std::size_t comment_start(std::string_view line) {
    for (std::size_t mark = line.find('#'); mark != line.npos; mark = line.find('#', mark + 1))
        if (mark == 0 || base::is_blank(line[mark - 1]))
            return mark;
    return line.npos;
}

// A line taken apart.
struct Line {
    explicit Line(std::string_view line) {
        for (const char end : {'\n', '\r'})
            if (line.ends_with(end))
                line.remove_suffix(1);
        const std::size_t comment = comment_start(line);
        content = base::trimmed_end(line.substr(0, comment));
        continued = comment == line.npos && line.ends_with('\\');
    }

    std::string_view content; // without comment, line break and the blanks before them
    bool continued;           // on the next line
};

} // namespace

std::string_view BootparamsEntry::name() const {
    return base::first_word(base::trimmed(text));
}

std::string_view BootparamsEntry::items() const {
    return base::trimmed(base::trimmed(text).substr(name().size()));
}

bool is_continued(std::string_view line) {
    return Line(line).continued;
}

bool BootparamsReader::next(BootparamsEntry &entry) {
    do {
        if (at_ == file_.size())
            return false;
        read(entry);
    } while (base::trimmed(entry.text).empty());
    return true;
}

std::string_view BootparamsReader::line() const {
    return file_.substr(at_, std::min(file_.find('\n', at_), file_.size() - 1) + 1 - at_);
}

void BootparamsReader::read(BootparamsEntry &entry) {
    entry.begin = at_;
    entry.text.clear();
    for (bool continued = true; continued;) {
        const std::string_view whole = line();
        auto [content, goes_on] = Line(whole);
        entry.tail = whole.substr(content.size());
        if (goes_on)
            content = base::trimmed_end(content.substr(0, content.size() - 1));
        if (entry.text.empty())
            entry.text = content;
        else
            entry.text.append(" ").append(base::trimmed(content));
        at_ += whole.size();
        continued = goes_on && at_ < file_.size();
    }
    entry.end = at_;
}

void for_each_client(std::string_view file,
                     const std::function<void(std::string_view name, std::string_view items)> &use) {
    BootparamsReader reader(file);
    for (BootparamsEntry entry; reader.next(entry);)
        if (const std::string_view name = entry.name(); name.front() != '+' && name.front() != '-')
            use(name, entry.items());
}

} // namespace hostadm::server
