#pragma once
// Locator endpoint URLs and the host-and-port texts they are built from.
#include <string>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Path of the locator service under a server's address.
inline constexpr tovan::wchar NVK_LocatorEndpoint[] = u"/locator/service";
/// The port a secure endpoint uses when its URL names none.
inline constexpr int NVK_DefaultSslPort = 443;

namespace LocatorEndpointIdentity {

/// "https://" (secure) or "http://", host, ":", port, NVK_LocatorEndpoint.
NVK_EXPORT void HostAndPortToEndPoint(const tovan::WString& host, int port, bool secure, tovan::WString& out);
NVK_EXPORT void HostAndPortToEndPoint(const std::string& host, int port, bool secure, std::string& out);
/// The same from "host:port" (split at the last colon); `port` receives the
/// port, and the endpoint is secure when it is NVK_DefaultSslPort. A text
/// without a port of 1 to 65535 in decimal is a BadParameterException
/// "Host and port \"%ls\" has no valid port"; `out` and `port` are unchanged then.
NVK_EXPORT void HostAndPortToEndPoint(const tovan::WString& hostAndPort, tovan::WString& out, int& port);
/// Drops the scheme ("http://" or "https://") and everything from the first
/// NVK_LocatorEndpoint on. A secure endpoint without a port gets
/// ":NVK_DefaultSslPort", so the result always names the port a secure
/// connection uses; a plain one without a port is left without. Text with
/// neither scheme is copied unchanged.
NVK_EXPORT void EndPointToHostAndPort(const tovan::WString& endpoint, tovan::WString& out);

}  // namespace LocatorEndpointIdentity

}  // namespace nvk
