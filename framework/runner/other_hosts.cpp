// SPDX-License-Identifier: MIT
#include "framework/runner/other_hosts.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/descriptor.hpp"
#include "base/encoding.hpp"
#include "base/program.hpp"
#include "base/text.hpp"
#include "base/this_host.hpp"
#include "base/translation.hpp"
#include "framework/protocol/answer.hpp"
#include "framework/protocol/kinds.hpp"
#include "framework/runner/perform.hpp"

namespace hostadm::framework {

namespace {

using Clock = std::chrono::steady_clock;
using Status = Outcome::Status;

// Nothing that comes from another host may fill the memory or flood the terminal.
constexpr std::size_t longest_answer = std::size_t{256} << 20;
constexpr std::size_t longest_before_greeting = 64 << 10;
constexpr std::size_t longest_line = 4 << 10;
constexpr std::size_t most_said = 1 << 20;
constexpr std::size_t longest_quotation = 300;

// What ssh logs itself, into a file of its own so that nothing that the other host says is taken for it.
class SshLog {
public:
    SshLog() : file_(memfd_create("hostadm-ssh-log", MFD_CLOEXEC)) {}
    bool is_open() const { return file_.is_open(); }
    // ssh closes what it inherits and opens this instead.
    std::string path() const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file_.get());
    }
    std::string text() const { return base::read_whole(file_.get()).value_or(""); }

private:
    base::Descriptor file_;
};

std::vector<std::string> ssh_words(const Login &login, const OtherHosts &how, const std::string &log) {
    std::vector<std::string> words = {"ssh", "-T", "-E", log};
    for (const std::string &option :
         {std::string("BatchMode=yes"), "ConnectTimeout=" + std::to_string(how.connect_limit),
          std::string("LogLevel=VERBOSE"), std::string("ServerAliveInterval=15"),
          std::string("ServerAliveCountMax=3"), std::string("ClearAllForwardings=yes"),
          std::string("ForwardAgent=no"), std::string("ForwardX11=no"), std::string("PermitLocalCommand=no"),
          std::string("RemoteCommand=none")})
        words.insert(words.end(), {"-o", option});
    words.insert(words.end(), {"--", login.text()});
    // In its own words what sudo says can be told apart; `hostadm serve` goes back to the user's language.
    if (how.sudo)
        words.insert(words.end(), {"env", "LANGUAGE=en", "sudo", "-n", "--"});
    words.insert(words.end(), {"hostadm", "serve"});
    // One that is older refuses the word, and does not run what was to be previewed.
    if (how.preview)
        words.emplace_back("--preview");
    return words;
}

// The first line that says something, fit for a message.
std::string quotation(std::string_view text) {
    std::string found;
    base::for_each_line(text, [&](std::string_view line) {
        if (found.empty())
            found = base::printable(base::trimmed(line).substr(0, longest_quotation));
    });
    return found;
}

// Why ssh itself failed, by what it logs in its one language.
struct Sign {
    std::string_view logged;
    int code;
    const char *text; // {1}: the host, {2}: the login, {3}: what ssh logged
};

using base::tr;
using base::translatable;

constexpr std::array signs{
    Sign{
        "REMOTE HOST IDENTIFICATION HAS CHANGED", host_key_changed,
        translatable("the key of {1} is another one than before, and another computer may pretend to be it; "
                     "only if it was installed anew, remove the old key with `ssh-keygen -R {1}` and compare "
                     "the new one's fingerprint when `ssh {2}` shows it")},
    Sign{"Host key verification failed", host_key_unknown,
         translatable("the key of {1} is not known here; log in once with `ssh {2}`, and accept it after a "
                      "look at its fingerprint")},
    Sign{"Could not resolve hostname", host_not_found,
         translatable("{1} has no address here; is its name spelt right, and is it in /etc/hosts or the name "
                      "service?")},
    Sign{"Permission denied", login_refused,
         translatable("{1} lets nobody log in as {2} without a password; put a key of yours into "
                      "~/.ssh/authorized_keys there (ssh-copy-id {2})")},
    Sign{"Too many authentication failures", login_refused,
         translatable("{1} refused all the keys that were offered to it for {2}; name the right one with "
                      "IdentityFile in ~/.ssh/config")},
    Sign{"Connection refused", connection_refused,
         translatable("{1} refuses the connection; does its ssh server run, and does it listen on the port "
                      "that ssh uses?")},
    Sign{"timed out", host_not_reached,
         translatable(
             "{1} did not answer in time ({3}); is it switched on, and does the network lead there?")},
    Sign{"connect to host", host_not_reached,
         translatable("{1} cannot be reached ({3}); is it switched on, and does the network lead there?")},
};

// What somebody said, in brackets behind what we say.
std::string in_brackets(const std::string &said) {
    return said.empty() ? "" : " (" + said + ")";
}

std::string line_with(std::string_view log, std::string_view words) {
    std::string found;
    base::for_each_line(log, [&](std::string_view line) {
        if (line.find(words) != line.npos)
            found = base::printable(base::trimmed(line).substr(0, longest_quotation));
    });
    return found;
}

// One host that the method runs on.
class Run {
public:
    Run(const Login &login, std::size_t number, const OtherHosts &how)
        : login_(login), number_(number), how_(how) {}

    std::optional<base::Companion> companion(const std::string &request) {
        if (!log_.is_open()) {
            tell(failure(cannot_run, tr("no memory file for the log of ssh: {1}", std::strerror(errno))));
            return std::nullopt;
        }
        return base::Companion{
            .program = {.words = ssh_words(login_, how_, log_.path()), .search = true, .input = request},
            .hear = [this](int stream, std::string_view piece) { return hear(stream, piece); },
            .deadline = [this] { return deadline(); },
            .ended = [this](const base::Ending &ending) { tell(judged(ending)); }};
    }

private:
    bool hear(int stream, std::string_view piece) {
        if (stream == STDERR_FILENO) {
            hear_aside(piece);
            return true;
        }
        answer_.append(piece);
        if (!greeted_)
            look_for_greeting();
        too_much_ = answer_.size() > (greeted_ ? longest_answer : longest_before_greeting);
        return !too_much_;
    }

    // What a login prints by itself comes before it and is nobody's business.
    void look_for_greeting() {
        const std::string greeting = std::string(serve_greeting) + "\n";
        const std::size_t found = answer_.find(greeting);
        if (found == answer_.npos || (found != 0 && answer_[found - 1] != '\n'))
            return;
        answer_.erase(0, found + greeting.size());
        greeted_ = true;
        say_lines();
        if (how_.answer_limit > 0)
            end_by_ = Clock::now() + std::chrono::seconds(how_.answer_limit);
        else
            end_by_.reset();
    }

    void hear_aside(std::string_view piece) {
        aside_ += piece.substr(0, most_said - std::min(most_said, heard_aside_));
        heard_aside_ += piece.size();
        if (greeted_)
            say_lines();
        else if (aside_.size() > longest_before_greeting)
            aside_.resize(longest_before_greeting);
    }

    // Hands on the whole lines.
    void say_lines() {
        std::size_t end = 0;
        while ((end = aside_.find('\n')) != aside_.npos || aside_.size() > longest_line) {
            end = std::min(end, longest_line);
            say(aside_.substr(0, end));
            aside_.erase(0, end + (aside_[end] == '\n' ? 1 : 0));
        }
    }
    void say(std::string_view line) const {
        if (how_.say)
            how_.say(login_.text(), base::printable(base::trimmed_end(line)));
    }

    std::optional<Clock::time_point> deadline() {
        // ssh's own limit, which says more, comes first.
        if (!begun_)
            end_by_ = Clock::now() + std::chrono::seconds(how_.connect_limit + 1);
        begun_ = true;
        return end_by_;
    }

    void tell(Outcome outcome) const { how_.done(number_, std::move(outcome)); }

    static Outcome failure(int code, std::string text) {
        Outcome outcome;
        outcome.answer.errors.push_back({code, std::move(text)});
        return outcome;
    }

    Outcome judged(const base::Ending &ending) {
        if (greeted_ && !aside_.empty())
            say(aside_);
        if (greeted_ && heard_aside_ > most_said)
            say(tr("(it said more, which is left out)"));
        // Whatever became of the connection afterwards.
        if (auto outcome = too_much_ ? std::nullopt : parse_outcome(answer_))
            return std::move(*outcome);
        return greeted_ ? cut_off(ending) : not_begun(ending);
    }

    // It was at work, and nobody knows how far it has come.
    Outcome cut_off(const base::Ending &ending) const {
        Outcome outcome = [&] {
            if (ending.timed_out && how_.preview)
                return failure(no_answer_in_time,
                               tr("no answer from {1} within {2} seconds; it was only a preview, and nothing "
                                  "has been changed there",
                                  login_.host, how_.answer_limit));
            if (ending.timed_out)
                return failure(
                    no_answer_in_time,
                    tr("no answer from {1} within {2} seconds; it may have done a part of its work, "
                       "and `hostadm status` there tells what is so",
                       login_.host, how_.answer_limit));
            if (too_much_)
                return failure(answer_cut_off, tr("{1} answered more than {2} megabytes, and was cut off",
                                                  login_.host, longest_answer >> 20));
            const std::string ended =
                base::in_words(ending) + in_brackets(line_with(log_.text(), "not responding"));
            if (how_.preview)
                return failure(answer_cut_off,
                               tr("the answer of {1} breaks off: ssh {2}; it was only a preview, and "
                                  "nothing has been changed there",
                                  login_.host, ended));
            return failure(
                answer_cut_off,
                tr("the answer of {1} breaks off: ssh {2}; it may have done a part of its work, and "
                   "`hostadm status` there tells what is so",
                   login_.host, ended));
        }();
        outcome.answer.dirty = !how_.preview;
        Answer came = parse_answer(too_much_ ? "" : answer_);
        outcome.answer.outputs = std::move(came.outputs);
        outcome.answer.rows = std::move(came.rows);
        outcome.answer.left_undone = std::move(came.left_undone);
        outcome.answer.errors.insert(outcome.answer.errors.begin(), came.errors.begin(), came.errors.end());
        return outcome;
    }

    Outcome not_begun(const base::Ending &ending) const {
        if (ending.not_found())
            return failure(cannot_run, tr("there is no ssh here; install openssh-client"));
        const std::string log = log_.text();
        // Where ssh shares a connection that is open already it logs no login.
        const bool logged_in = log.find("Authenticated to ") != log.npos;
        if (ending.timed_out && logged_in)
            return failure(host_not_reached,
                           tr("{1} let {2} in, but hostadm did not begin there within {3} seconds",
                              login_.host, login_.text(), how_.connect_limit));
        if (ending.timed_out)
            return failure(host_not_reached,
                           tr("no login to {1} within {2} seconds; is it switched on, and is "
                              "it too busy?",
                              login_.host, how_.connect_limit));
        if (!logged_in && ending.exit_status == 255)
            for (const Sign &sign : signs)
                if (log.find(sign.logged) != log.npos)
                    return failure(sign.code,
                                   tr(sign.text, login_.host, login_.text(), line_with(log, sign.logged)));
        if (logged_in || too_much_ || (ending.exit_status != 255 && ending.signal == 0))
            return not_started_there(ending);
        return failure(host_not_reached,
                       tr("ssh to {1} {2}; does `ssh {3} true` work?", login_.host,
                          base::in_words(ending) + in_brackets(quotation(log)), login_.text()));
    }

    // The login succeeded.
    Outcome not_started_there(const base::Ending &ending) const {
        const std::string said = quotation(aside_);
        if (too_much_)
            return failure(no_hostadm_there, tr("{1} does not stop talking before hostadm begins there; what "
                                                "does a login of {2} print?",
                                                login_.host, login_.text()));
        if (ending.exit_status == 127 || (how_.sudo && said.ends_with("hostadm: command not found")))
            return failure(no_hostadm_there,
                           how_.sudo ? tr("there is no hostadm or no sudo on {1}{2}; install it there",
                                          login_.host, in_brackets(said))
                                     : tr("there is no hostadm on {1}{2}; install it there", login_.host,
                                          in_brackets(said)));
        if (how_.sudo && ending.exit_status == 1)
            return failure(
                sudo_refused,
                tr("sudo on {1} does not let {2} run hostadm without a password{3}; a line such as "
                   "\"NAME ALL=(root) NOPASSWD: /usr/bin/{4}\" in /etc/sudoers.d allows it",
                   login_.host, login_.text(), in_brackets(said),
                   how_.preview ? "hostadm serve --preview" : "hostadm serve"));
        return failure(no_hostadm_there,
                       tr("{1} let {2} in, but hostadm did not begin there: ssh {3}", login_.host,
                          login_.text(), base::in_words(ending) + in_brackets(said)));
    }

    Login login_;
    std::size_t number_;
    const OtherHosts &how_;
    SshLog log_;
    std::string answer_;
    std::string aside_; // what came on standard error and was not handed on yet
    std::size_t heard_aside_ = 0;
    bool begun_ = false, greeted_ = false, too_much_ = false;
    std::optional<Clock::time_point> end_by_;
};

} // namespace

Login login_of(const std::string &text) {
    const std::size_t at = text.rfind('@');
    return at == text.npos || at == 0 ? Login{"", text} : Login{text.substr(0, at), text.substr(at + 1)};
}

std::string defect_of(const Login &login) {
    const method::Argument host{.name = "host", .kind = method::Kind::host};
    if (is_accepted(host, login.host) && (login.user.empty() || is_accepted(host, login.user)))
        return "";
    return tr("the host cannot be \"{1}\"; it must be {2}, with USER@ before it if wanted", login.text(),
              accepted(host));
}

void perform_on(const std::vector<std::string> &hosts, const std::string &method, Request request,
                const OtherHosts &how) {
    request.method = method;
    std::vector<Login> logins;
    std::vector<std::size_t> there, here;
    for (std::size_t at = 0; at < hosts.size(); ++at) {
        const Login login = login_of(hosts[at]);
        if (std::string defect = defect_of(login); !defect.empty())
            how.done(at, {Status::invalid, {}, std::move(defect)});
        else if (login.user.empty() && !how.sudo &&
                 base::is_this_host(login.host, base::Lookup::name_services))
            here.push_back(at);
        else {
            there.push_back(at);
            logins.push_back(login);
        }
    }
    OtherHosts numbered = how;
    numbered.done = [&](std::size_t at, Outcome outcome) { how.done(there[at], std::move(outcome)); };
    perform_there(logins, request, numbered);
    for (const std::size_t at : here)
        how.done(at, how.preview ? how.preview(request) : perform("", method, request, ""));
}

void perform_there(const std::vector<Login> &logins, const Request &request, const OtherHosts &how) {
    const std::string text = to_text(request);
    std::vector<std::unique_ptr<Run>> runs;
    std::vector<base::Companion> companions;
    for (std::size_t at = 0; at < logins.size(); ++at) {
        runs.push_back(std::make_unique<Run>(logins[at], at, how));
        if (auto companion = runs.back()->companion(text))
            companions.push_back(std::move(*companion));
    }
    base::run_together(companions, how.at_once);
}

} // namespace hostadm::framework
