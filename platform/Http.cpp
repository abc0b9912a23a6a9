#include "nvk/platform/Http.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

#include "nvk/platform/Exception.h"

namespace tovan {
namespace {

constexpr const char* kClass = "CHttp";

// libcurl's global set-up is not safe to race with itself or with handles
// being made; doing it once before the first handle covers both.
void initCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

size_t collect(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

bool hasLineBreak(const WString& text) { return text.view().find_first_of(u"\r\n") != std::u16string_view::npos; }

bool sameNameNoCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'A' && a[i] <= 'Z' ? char(a[i] + 32) : a[i];
        char y = b[i] >= 'A' && b[i] <= 'Z' ? char(b[i] + 32) : b[i];
        if (x != y) return false;
    }
    return true;
}

// The first line of an error answer, short enough for a message.
std::string firstLine(const std::string& body) {
    std::string line = body.substr(0, body.find_first_of("\r\n"));
    if (line.size() > 200) line.resize(200);
    return line;
}

}  // namespace

CHttp::CHttp() {
    initCurlOnce();
    curl_ = curl_easy_init();
    if (!curl_) throw MemoryException(kClass, "CHttp", u"libcurl could not make a handle");
}

CHttp::~CHttp() { curl_easy_cleanup(static_cast<CURL*>(curl_)); }

void CHttp::setHeader(const WString& name, const WString& value) {
    if (hasLineBreak(name) || hasLineBreak(value))
        throw BadParameterException(kClass, "setHeader", u"Header %ls carries a line break", name);
    std::string key = toNarrow(name);
    for (auto& header : headers_)
        if (sameNameNoCase(header.first, key)) {
            header.second = toNarrow(value);
            return;
        }
    headers_.emplace_back(std::move(key), toNarrow(value));
}

void CHttp::setConnectTimeoutMs(long ms) {
    if (ms < 1) throw BadParameterException(kClass, "setConnectTimeoutMs", u"Timeout must be at least 1 ms, not %ld", ms);
    connectTimeoutMs_ = ms;
}

void CHttp::setTimeoutMs(long ms) {
    if (ms < 1) throw BadParameterException(kClass, "setTimeoutMs", u"Timeout must be at least 1 ms, not %ld", ms);
    timeoutMs_ = ms;
}

std::string CHttp::get(const WString& url) { return perform("GET", url, nullptr); }

std::string CHttp::postForm(const WString& url, const std::vector<std::pair<WString, WString>>& fields) {
    CURL* curl = static_cast<CURL*>(curl_);
    std::string body;
    for (const auto& [name, value] : fields) {
        std::string n = toNarrow(name), v = toNarrow(value);
        std::unique_ptr<char, decltype(&curl_free)> en(curl_easy_escape(curl, n.data(), int(n.size())), &curl_free);
        std::unique_ptr<char, decltype(&curl_free)> ev(curl_easy_escape(curl, v.data(), int(v.size())), &curl_free);
        if (!en || !ev) throw MemoryException(kClass, "postForm", u"Out of memory encoding the form for %ls", url);
        if (!body.empty()) body += '&';
        body.append(en.get()).append("=").append(ev.get());
    }
    return perform("POST", url, &body);
}

std::string CHttp::perform(const char* method, const WString& url, const std::string* formBody) {
    CURL* curl = static_cast<CURL*>(curl_);
    lastStatus_ = 0;
    // Each request states every option it relies on; nothing of the previous
    // one carries over except the connection cache.
    curl_easy_reset(curl);
    std::string target = toNarrow(url);
    std::string body;
    curl_easy_setopt(curl, CURLOPT_URL, target.c_str());
    // HTTP only: libcurl would also read "file://" and a dozen other schemes,
    // whose answers have no HTTP status to judge them by.
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);  // timeouts without SIGALRM, safe in threads
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, connectTimeoutMs_);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMs_);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    if (formBody) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, formBody->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(formBody->size()));
    } else {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    }
    // No "Expect: 100-continue" round trip before larger form bodies.
    curl_slist* list = formBody ? curl_slist_append(nullptr, "Expect:") : nullptr;
    for (const auto& [name, value] : headers_) {
        // "Name;" is libcurl's way to send a header with an empty value.
        std::string line = value.empty() ? name + ";" : name + ": " + value;
        curl_slist* grown = curl_slist_append(list, line.c_str());
        if (!grown) {
            curl_slist_free_all(list);
            throw MemoryException(kClass, "perform", u"Out of memory for the headers of %ls", url);
        }
        list = grown;
    }
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(list, &curl_slist_free_all);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list);
    char error[CURL_ERROR_SIZE] = "";
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);

    CURLcode rc = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
    if (rc != CURLE_OK)
        throw Exception(kClass, "perform", u"%hs %ls failed: %hs", method, url,
                        error[0] ? error : curl_easy_strerror(rc));
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    lastStatus_ = status;
    if (status < 200 || status > 299)
        throw Exception(kClass, "perform", u"%hs %ls failed: HTTP %ld: %hs", method, url, status, firstLine(body));
    return body;
}

}  // namespace tovan
