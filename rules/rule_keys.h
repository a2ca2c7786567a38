// The keys of a rule record, shared by the parser that writes them and the
// printer that reads them back, so that the two cannot drift apart.
#pragma once

#include <string_view>

namespace halvo::rules::keys {

inline constexpr std::string_view action = "action";
inline constexpr std::string_view quick = "quick";
inline constexpr std::string_view host = "host";
inline constexpr std::string_view notHost = "notHost";
inline constexpr std::string_view rdesk = "rdesk";
inline constexpr std::string_view name = "name";
inline constexpr std::string_view nameMatch = "nameMatch";
inline constexpr std::string_view notName = "notName";
inline constexpr std::string_view builtIn = "built-in";
inline constexpr std::string_view vid = "vid";
inline constexpr std::string_view pid = "pid";
inline constexpr std::string_view rev = "rev";
inline constexpr std::string_view notHwid = "notHWID";
inline constexpr std::string_view serial = "serial";
inline constexpr std::string_view notSerial = "notSerial";
inline constexpr std::string_view port = "port";
inline constexpr std::string_view notPort = "notPort";
inline constexpr std::string_view deviceClass = "class";
inline constexpr std::string_view subclass = "subclass";
inline constexpr std::string_view protocol = "protocol";
inline constexpr std::string_view notClass = "notClass";
inline constexpr std::string_view overrideName = "override-name";
inline constexpr std::string_view overrideSerial = "override-serial";
inline constexpr std::string_view takeaway = "takeaway";

} // namespace halvo::rules::keys
