#include "cli/usage.h"

#include <cstdlib>
#include <libgen.h>
#include <string>

namespace halvo::cli {

namespace {

const char* gProgramName = "";

// One entry per help line; lines with `withName` carry the program name at
// their single "%s".
struct HelpLine {
    bool withName;
    const char* text;
};

constexpr HelpLine kHelpLines[] = {
    {true, "Usage:\t%s dev\t\t- show list of devices\n"},
    {true, "\t%s dev list \t- show list of devices\n"},
    {true, "\t%s dev unplug <devId>\t- disconnect the device\n"},
    {true, "\t%s dev share <devId>\t- create rule for sharing exact device\n"},
    {true, "\t%s dev block <devId>\t- create rule for blocking exact device\n"},
    {true, "\t%s conn\t\t- show list of active connections\n"},
    {true, "\t%s conn list\t\t- show list of active connections\n"},
    {true, "\t%s conn drop [-p port] <host>\t- drop connection with the host\n"},
    {true, "\t%s conn kill <PID>\t- drop connection with the remote desktop client\n"},
    {true, "\t%s rule\t\t- show numbered list of sharing rules\n"},
    {true, "\t%s rule list [-N]\t- same as above\n"},
    {false, "\t\t-N - output without rule index\n"},
    {true, "\t%s rule load [<path>]\t- load ruleset from <path> or stdin\n"},
    {true, "\t%s rule edit\t\t- edit current ruleset\n"},
    {true, "\t%s rule test [-f <path>] -r|-h <host> <devId>\t- test rules\n"},
    {false, "\t\t-r - remote desktop connection\n"},
    {false, "\t\t-h <host> - connection from host\n"},
    {false, "\t\t-f <path> - ruleset from <path> or - for stdin\n"},
    {true, "\t%s monitor\t- monitor events from the daemon\n"},
    {true, "\t%s -h\t\t- this help\n"},
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
        if (line.withName) {
            // The format strings are the fixed table above, never user text.
            std::fprintf(out, line.text, gProgramName);
        } else {
            std::fputs(line.text, out);
        }
    }
}

void usage(int status) {
    printHelp(status == 0 ? stdout : stderr);
    std::exit(status);
}

} // namespace halvo::cli
