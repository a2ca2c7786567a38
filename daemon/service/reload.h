// What SIGHUP does: reads the config file and the rules file again.
//
// All or nothing: when the options or the rules file are refused, the
// daemon keeps its settings and its rules, and says why in the log.  The
// committed rules and the default action change at once, for the control
// clients and the USB/IP front end alike (shares they no longer allow end,
// as after a commit); settings that
// shape the daemon itself (addresses, device source, limits, the rules
// file's path) take effect at the next start, which the log says.
#pragma once

#include "daemon/control/request_handler.h"
#include "daemon/core/rule_store.h"
#include "daemon/service/options.h"
#include "daemon/service/sharing.h"

#include <span>

namespace halvo::daemon {

class Reloader {
  public:
    // `arguments` (without argv[0]) must outlive the reloader; `running` is
    // what the daemon started with, and follows each reload.
    Reloader(std::span<const char* const> arguments, Options& running, RuleStore& rules,
             RequestHandler& handler, Sharing& sharing);

    // Whether the new settings were taken.
    bool reload();

  private:
    std::span<const char* const> arguments_;
    Options& running_;
    RuleStore& rules_;
    RequestHandler& handler_;
    Sharing& sharing_;
};

} // namespace halvo::daemon
