// The operations a connection class offers and a subclass may override.
#pragma once

#include <string_view>

namespace halvo::link {

class QVTCPConnectionProtocol {
  public:
    virtual ~QVTCPConnectionProtocol() = default;

    // Starts connecting; the outcome arrives later as a notification.
    virtual bool start() = 0;
    // Cancels the connection; safe to call more than once.
    virtual void stop() = 0;
    // Notification: the connection cannot go ahead for now (taken as final).
    virtual void waitConnection() = 0;
    // Notification: the connection is ready.
    virtual void startProtocol() = 0;
    // Notification: the link is over for `reason` (may be null). May come
    // more than once in one link's life.
    virtual void stopProtocol(const char* reason) = 0;
    // One received piece, of the size set before the read (shorter only when
    // the stream ended). True to go on reading, false to end the link as
    // broken.
    virtual bool parseProtocolPacket(std::string_view piece) = 0;
    // Notification: one send completed.
    virtual void sent() = 0;
};

} // namespace halvo::link
