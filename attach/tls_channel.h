// halvo-attach --tls: the request and reply inside TLS (halvod's TLS port),
// the server's certificate checked against the host name the user gave,
// and the session's keys in the kernel before the socket goes to vhci-hcd,
// so that the device's traffic stays encrypted.  Where the kernel cannot
// take the keys (no `tls` module) the hand-off is refused: never in clear.
#pragma once

#include "attach/channel.h"
#include "tls/context.h"

namespace halvo::attach {

// A connector over TLS with `credentials`; why not when a file cannot be
// used.
util::Expected<Connector> tlsConnector(const tls::Credentials& credentials,
                                       std::chrono::milliseconds timeout,
                                       std::chrono::seconds deadAfter = std::chrono::seconds(30));

} // namespace halvo::attach
