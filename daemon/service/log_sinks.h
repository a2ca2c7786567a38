// Where halvod's activity log goes: the journal, with its structured fields,
// when systemd runs the daemon with its output in the journal; syslog when
// the daemon has no standard error to write to (started detached, its
// output closed or sent to /dev/null); standard error otherwise, in the
// foreground.
#pragma once

#include "daemon/core/activity_log.h"

#include <memory>

namespace halvo::daemon {

std::shared_ptr<LogSink> chooseLogSink();

} // namespace halvo::daemon
