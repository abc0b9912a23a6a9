#include "nvk/services/LocatorEndpointIdentity.h"

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"

using namespace tovan;

namespace nvk {

namespace LocatorEndpointIdentity {

void HostAndPortToEndPoint(const WString& host, int port, bool secure, WString& out) {
    out = format(u"%ls%ls:%d%ls", secure ? u"https://" : u"http://", host, port, NVK_LocatorEndpoint);
}

void HostAndPortToEndPoint(const std::string& host, int port, bool secure, std::string& out) {
    WString wide;
    HostAndPortToEndPoint(toWide(host), port, secure, wide);
    out = toNarrow(wide);
}

void HostAndPortToEndPoint(const WString& hostAndPort, WString& out, int& port) {
    std::u16string_view s = hostAndPort.view();
    size_t colon = s.rfind(u':');
    int value = 0;
    const bool valid = colon != std::u16string_view::npos && s.size() - colon - 1 <= 5 &&
                       parseInteger(s.substr(colon + 1), value, NumberSigns::None);
    if (!valid || value < 1 || value > 65535)
        throw BadParameterException("LocatorEndpointIdentity", "HostAndPortToEndPoint",
                                    u"Host and port \"%ls\" has no valid port", hostAndPort);
    port = int(value);
    HostAndPortToEndPoint(WString(s.substr(0, colon)), port, port == NVK_DefaultSslPort, out);
}

void EndPointToHostAndPort(const WString& endpoint, WString& out) {
    std::u16string_view s = endpoint.view();
    bool secure;
    if (s.substr(0, 7) == u"http://") {
        secure = false;
        s.remove_prefix(7);
    } else if (s.substr(0, 8) == u"https://") {
        secure = true;
        s.remove_prefix(8);
    } else {
        out = endpoint;
        return;
    }
    s = s.substr(0, s.find(NVK_LocatorEndpoint));
    WString result(s);
    if (secure && s.find(u':') == std::u16string_view::npos) result += format(u":%d", NVK_DefaultSslPort).view();
    out = std::move(result);
}

}  // namespace LocatorEndpointIdentity

}  // namespace nvk
