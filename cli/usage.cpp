#include "cli/usage.h"

#include <cstdlib>
#include <libgen.h>
#include <string>

namespace halvo::cli {

namespace {

const char* gProgramName = "";

// One entry per help line: the program name goes between `before` and
// `after`; a line without `after` carries no name.
struct HelpLine {
    const char* before;
    const char* after;
};

constexpr HelpLine kHelpLines[] = {
    {"Usage:\t", " dev\t\t- show list of devices\n"},
    {"\t", " dev list \t- show list of devices\n"},
    {"\t", " dev unplug <devId>\t- disconnect the device\n"},
    {"\t", " dev share <devId>\t- create rule for sharing exact device\n"},
    {"\t", " dev block <devId>\t- create rule for blocking exact device\n"},
    {"\t", " conn\t\t- show list of active connections\n"},
    {"\t", " conn list\t\t- show list of active connections\n"},
    {"\t", " conn drop [-p port] <host>\t- drop connection with the host\n"},
    {"\t", " conn kill <PID>\t- drop connection with the remote desktop client\n"},
    {"\t", " rule\t\t- show numbered list of sharing rules\n"},
    {"\t", " rule list [-N]\t- same as above\n"},
    {"\t\t-N - output without rule index\n", nullptr},
    {"\t", " rule load [<path>]\t- load ruleset from <path> or stdin\n"},
    {"\t", " rule edit\t\t- edit current ruleset\n"},
    {"\t", " rule test [-f <path>] -r|-h <host> <devId>\t- test rules\n"},
    {"\t\t-r - remote desktop connection\n", nullptr},
    {"\t\t-h <host> - connection from host\n", nullptr},
    {"\t\t-f <path> - ruleset from <path> or - for stdin\n", nullptr},
    {"\t", " monitor\t- monitor events from the daemon\n"},
    {"\t", " -h\t\t- this help\n"},
};

} // namespace

void setProgramName(int argc, char** argv) {
    // basename may modify its argument, and argv[0] stays visible in ps;
    // the copy lives as long as the name is used, whatever its length.
    static std::string copy;
    if (argc < 1 || argv[0] == nullptr) {
        gProgramName = "";
        return;
    }
    copy = argv[0];
    gProgramName = basename(copy.data());
}

const char* programName() {
    return gProgramName;
}

void printHelp(std::FILE* out) {
    for (const HelpLine& line : kHelpLines) {
        std::fputs(line.before, out);
        if (line.after != nullptr) {
            std::fputs(gProgramName, out);
            std::fputs(line.after, out);
        }
    }
}

void usage(int status) {
    printHelp(status == 0 ? stdout : stderr);
    std::exit(status);
}

} // namespace halvo::cli
