#include "daemon/service/reload.h"

#include "daemon/core/activity_log.h"
#include "daemon/platform/rules_file.h"
#include "daemon/service/service_manager.h"

#include <string>
#include <vector>

namespace halvo::daemon {

namespace {

// The options whose new value waits for the next start, as "--a, --b".
std::string restartOnlyChanges(const Options& running, const Options& next) {
    const std::pair<bool, const char*> kChanges[] = {
        {running.listen != next.listen, "--listen"},
        {running.allowRemote != next.allowRemote, "--allow-remote"},
        {running.shareListen != next.shareListen, "--share-listen"},
        {running.sharing != next.sharing, "the USB/IP limits"},
        {running.sysfsRoot != next.sysfsRoot, "--sysfs"},
        {running.deviceFixture != next.deviceFixture, "--devices"},
        {running.connectionFixture != next.connectionFixture, "--connections"},
        {running.rulesPath != next.rulesPath, "--rules"},
        {running.rescanPeriod != next.rescanPeriod, "--rescan-ms"},
        {running.adminGroup != next.adminGroup, "--admin-group"},
        {running.limits != next.limits, "the client limits"},
    };
    std::string names;
    for (const auto& [changed, name] : kChanges) {
        if (changed) {
            names.append(names.empty() ? "" : ", ").append(name);
        }
    }
    return names;
}

void refuse(const std::string& why) {
    logActivity(LogLevel::error, "reload refused: " + why);
    service_manager::notifyReady("running; the last reload was refused: " + why);
}

} // namespace

Reloader::Reloader(std::span<const char* const> arguments, Options& running, RuleStore& rules,
                   RequestHandler& handler, Sharing& sharing)
    : arguments_(arguments), running_(running), rules_(rules), handler_(handler),
      sharing_(sharing) {}

bool Reloader::reload() {
    service_manager::notifyReloading();
    ParsedOptions parsed = parseOptions(arguments_);
    if (auto* problem = std::get_if<std::string>(&parsed)) {
        refuse(*problem + "; the old settings and rules stay");
        return false;
    }
    const Options& next = std::get<Options>(parsed);
    boost::json::array rules = rules_.committed();
    if (running_.rulesPath) {
        auto loaded = loadRulesFile(*running_.rulesPath);
        if (!loaded) {
            refuse(loaded.error() + "; the old settings and rules stay");
            return false;
        }
        rules = std::move(*loaded);
    }
    if (std::string waiting = restartOnlyChanges(running_, next); !waiting.empty()) {
        logActivity(LogLevel::warning, "reload: " + waiting + " take effect at the next start");
    }
    const std::size_t count = rules.size();
    rules_.replaceCommitted(std::move(rules));
    running_.defaultAction = next.defaultAction;
    handler_.setDefaultAction(next.defaultAction);
    sharing_.rulesReplaced(next.defaultAction);
    const std::string done = "reloaded: " + std::to_string(count) + " rules";
    logActivity(LogLevel::notice, done, {{"HALVO_CONFIG", next.configPath}});
    service_manager::notifyReady(done);
    return true;
}

} // namespace halvo::daemon
