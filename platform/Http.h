#pragma once
// CHttp: the framework's HTTP client, on libcurl.
//
// One object holds one connection cache (a second request to the same host
// reuses the connection) and is used by one thread at a time; callers that
// share one serialise their calls. Every failure raises Exception (class
// "CHttp") naming the method and the URL, and then either the HTTP status
// with the first line of the answer ("GET http://h/x failed: HTTP 403: no
// session") or libcurl's message ("GET http://h/x failed: Couldn't connect to
// server"). A timeout is one of libcurl's messages ("Timeout was reached").
// URLs are http:// and https:// only; another scheme is refused with
// libcurl's message for it.
#include <string>
#include <utility>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan {

/// The request header that carries the client's session key to the server.
inline constexpr char16_t NVK_SessionHeader[] = u"X-NVK-Session";

class NVK_EXPORT CHttp {
public:
    /// Time allowed to set up a connection, and for a whole exchange, unless set otherwise.
    static constexpr long DefaultConnectTimeoutMs = 10000;
    static constexpr long DefaultTimeoutMs = 60000;

    CHttp();
    ~CHttp();
    CHttp(const CHttp&) = delete;
    CHttp& operator=(const CHttp&) = delete;

    /// A header sent with every later request; setting a name again replaces
    /// its value (names compare without regard to case). Names and values are
    /// sent as UTF-8; a line break in either raises BadParameterException
    /// "Header %ls carries a line break" and leaves the headers as they were.
    void setHeader(const WString& name, const WString& value);
    /// Both in milliseconds, at least 1; a smaller value raises
    /// BadParameterException "Timeout must be at least 1 ms, not %ld".
    void setConnectTimeoutMs(long ms);
    void setTimeoutMs(long ms);
    long getConnectTimeoutMs() const { return connectTimeoutMs_; }
    long getTimeoutMs() const { return timeoutMs_; }

    /// The answer's body when the status is 2xx; any other status raises.
    std::string get(const WString& url);
    /// Posts `fields` as an application/x-www-form-urlencoded body (names and
    /// values percent-encoded as UTF-8, in the order given); the answer's body
    /// when the status is 2xx, any other status raises.
    std::string postForm(const WString& url, const std::vector<std::pair<WString, WString>>& fields);

    /// The HTTP status of the last exchange that got an answer; 0 before one
    /// or when the last request got none.
    long getLastStatus() const { return lastStatus_; }

private:
    std::string perform(const char* method, const WString& url, const std::string* formBody);

    void* curl_ = nullptr;
    std::vector<std::pair<std::string, std::string>> headers_;
    long connectTimeoutMs_ = DefaultConnectTimeoutMs;
    long timeoutMs_ = DefaultTimeoutMs;
    long lastStatus_ = 0;
};

}  // namespace tovan
