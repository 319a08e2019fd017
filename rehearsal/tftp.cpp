// SPDX-License-Identifier: MIT
#include "rehearsal/tftp.hpp"

#include <curl/curl.h>
#include <functional>
#include <memory>

#include "base/translation.hpp"

namespace hostadm::rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr long time_limit = 20; // seconds, for all of a file that comes slowly
constexpr std::size_t largest = std::size_t{64} << 20;

struct Transfer {
    std::string content;
    Clock::time_point give_up;
    bool given_up = false;
};

std::size_t take(char *bytes, std::size_t size, std::size_t count, void *to) {
    std::string &content = static_cast<Transfer *>(to)->content;
    if (content.size() + size * count > largest)
        return 0;
    content.append(bytes, size * count);
    return size * count;
}

// Non-zero ends the transfer: when not even a first block has come.
int watch(void *of, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto &transfer = *static_cast<Transfer *>(of);
    transfer.given_up = transfer.content.empty() && Clock::now() > transfer.give_up;
    return transfer.given_up ? 1 : 0;
}

} // namespace

Fetched fetch_by_tftp(const std::string &server, const std::string &file, const std::string &interface,
                      std::chrono::milliseconds patience) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), curl_easy_cleanup);
    if (!handle)
        return {.reason = base::tr("no TFTP client can be had")};
    Transfer transfer{{}, Clock::now() + patience, false};
    char error[CURL_ERROR_SIZE] = "";
    const std::string url = "tftp://" + server + '/' + file;
    CURL *curl = handle.get();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TFTP_NO_OPTIONS, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, time_limit);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, watch);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    if (!interface.empty())
        curl_easy_setopt(curl, CURLOPT_INTERFACE, ("if!" + interface).c_str());
    const CURLcode code = curl_easy_perform(curl);
    Fetched fetched{.whole = code == CURLE_OK, .content = std::move(transfer.content)};
    const bool timed_out = transfer.given_up || code == CURLE_OPERATION_TIMEDOUT;
    // The library's own text for an error in the first answer speaks of something else.
    const std::string text = std::string_view(error).starts_with("getpeername") ? "" : error;
    if (code == CURLE_OK)
        return fetched;
    fetched.silent = timed_out && fetched.content.empty();
    if (timed_out)
        fetched.reason =
            fetched.silent ? base::tr("nobody answered") : base::tr("the transfer stopped half-way");
    else if (code == CURLE_TFTP_NOTFOUND)
        fetched.reason = base::tr("the server says that there is no such file");
    else if (code == CURLE_TFTP_PERM || code == CURLE_REMOTE_ACCESS_DENIED)
        fetched.reason = base::tr("the server says that access is denied");
    else if (code == CURLE_ABORTED_BY_CALLBACK || code == CURLE_TFTP_ILLEGAL)
        fetched.reason =
            base::tr("the server refuses it"); // an error without a number of its own, most often of access
    else
        fetched.reason = text.empty() ? curl_easy_strerror(code) : text;
    return fetched;
}

std::string fingerprint(const std::string &content) {
    return std::to_string(content.size()) + ':' + std::to_string(std::hash<std::string>()(content));
}

} // namespace hostadm::rehearsal
