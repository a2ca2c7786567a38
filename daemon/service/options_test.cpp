#include "daemon/service/options.h"
#include "tests/support/files.h"

#include <cctype>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

using testkit::TempDir;

ParsedOptions parse(std::vector<std::string> arguments, const std::string& config = "/dev/null") {
    if (!config.empty()) {
        arguments.insert(arguments.begin(), {"--config", config});
    }
    std::vector<const char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(argument.c_str());
    }
    return parseOptions(pointers);
}

TEST(OptionsTest, TheCommandLineWinsOverTheConfigFileWhichWinsOverDefaults) {
    TempDir scratch;
    const std::string config = scratch.write("halvod.conf", "# the administrator's settings\n"
                                                            "listen = 127.0.0.2:4000\n"
                                                            "default = share\n"
                                                            "rules = /srv/halvod.rules\n"
                                                            "allow-remote = false\n"
                                                            "max-clients = 7\n"
                                                            "share-listen = [::]:3240\n");
    auto parsed = parse({"--listen", "127.0.0.3:5000", "--rules-in-memory"}, config);
    ASSERT_TRUE(std::holds_alternative<Options>(parsed)) << std::get<std::string>(parsed);
    const Options& options = std::get<Options>(parsed);
    EXPECT_EQ(options.listen, *parseEndpoint("127.0.0.3:5000"));
    EXPECT_EQ(options.rulesPath, std::nullopt);
    EXPECT_EQ(options.defaultAction, Action::share);
    EXPECT_EQ(options.limits.maxClients, 7u);
    EXPECT_EQ(options.configPath, config);
    EXPECT_EQ(options.shareListen, *parseEndpoint("[::]:3240"));
    EXPECT_EQ(options.sysfsRoot, "/sys/bus/usb/devices");

    EXPECT_EQ(std::get<Options>(parse({})).rulesPath, "/var/lib/halvo/halvod.rules");
    EXPECT_TRUE(std::holds_alternative<HelpRequested>(parse({"--max-clients", "0", "-h"})));
    EXPECT_TRUE(std::holds_alternative<VersionRequested>(parse({"--version"})));
}

// The sample config that the package installs names every setting with its
// default: with every setting line uncommented it must still be accepted.
TEST(OptionsTest, TheSampleConfigFileHoldsValidSettings) {
    std::string text = testkit::readFile(HALVOD_SAMPLE_CONFIG);
    ASSERT_FALSE(text.empty());
    for (std::size_t at = text.find("\n#"); at != std::string::npos; at = text.find("\n#", at)) {
        // "#name = value" is a setting; "# text" a comment.
        if (std::islower(static_cast<unsigned char>(text[at + 2])) != 0) {
            text.erase(at + 1, 1);
        }
        ++at;
    }
    TempDir scratch;
    auto parsed = parse({}, scratch.write("halvod.conf", text));
    ASSERT_TRUE(std::holds_alternative<Options>(parsed)) << std::get<std::string>(parsed);
    EXPECT_EQ(std::get<Options>(parsed).limits, ClientLimits());
    EXPECT_EQ(std::get<Options>(parsed).sharing, usbip::ServerSettings());
    EXPECT_EQ(std::get<Options>(parsed).shareListen, *parseEndpoint("0.0.0.0:3240"));
}

TEST(OptionsTest, EveryProblemIsNamed) {
    const std::pair<std::vector<std::string>, std::string> kCommandLines[] = {
        {{"--listen", "localhost:1"},
         "--listen wants an IP address and a port, as 127.0.0.1:32999; \"localhost\" is a name"},
        {{"--listen", "127.0.0.1"},
         "--listen wants an IP address and a port, as 127.0.0.1:32999, not \"127.0.0.1\""},
        {{"--share-listen", "[::1]:65536"},
         "--share-listen wants a port from 0 to 65535 after the address, not \"65536\""},
        {{"--listen", "0.0.0.0:0"},
         "refusing to listen on 0.0.0.0: the protocol has no authentication (add "
         "--allow-remote to do it anyway)"},
        {{"--default", "Share"}, "--default wants share or block, not \"Share\""},
        {{"--share-dead-peer-seconds", "5"},
         "--share-dead-peer-seconds wants a number of seconds from 6 to 3600, not \"5\""},
        {{"--rescan-ms", "0"},
         "--rescan-ms wants a number of milliseconds from 1 to 3600000, not \"0\""},
        {{"--max-clients", "0"},
         "--max-clients wants a whole number from 1 to 1073741824, not \"0\""},
        {{"--idle-seconds", "1s"},
         "--idle-seconds wants a number of seconds from 1 to 1073741824, not \"1s\""},
        {{"--sysfs", "/sys", "--devices", "d.json"}, "--sysfs and --devices exclude each other"},
        {{"--share-tls-listen", "0.0.0.0:3241", "--tls-cert", "c.pem", "--tls-key", "k.pem"},
         "--share-tls-listen needs --tls-cert, --tls-key and --tls-client-ca"},
        {{"--rules", "r", "--rules-in-memory"}, "--rules and --rules-in-memory exclude each other"},
        {{"--verbose"}, "unknown option \"--verbose\""},
        {{"--rules"}, "--rules needs a value"},
        {{"--allow-remote=yes"}, "--allow-remote takes no value"},
        {{"--default", "share", "--default", "block"}, "--default is given more than once"},
    };
    for (const auto& [arguments, problem] : kCommandLines) {
        auto parsed = parse(arguments);
        ASSERT_TRUE(std::holds_alternative<std::string>(parsed)) << problem;
        EXPECT_EQ(std::get<std::string>(parsed), problem);
    }

    TempDir scratch;
    const std::string missing = (scratch / "none.conf").string();
    EXPECT_EQ(std::get<std::string>(parse({}, missing)),
              "cannot read the config file " + missing + ": No such file or directory");
    const std::string conf = (scratch / "halvod.conf").string();
    const std::pair<std::string, std::string> kConfigs[] = {
        {"verbose = 1\n", ": unknown option \"verbose\""},
        {"--listen 127.0.0.1:1\n", ": \"--listen 127.0.0.1:1\" is no \"name = value\" line"},
        {"config = /etc/other.conf\n", ": unknown option \"config\""},
        {"allow-remote = maybe\n", ": allow-remote wants true or false, not \"maybe\""},
        {"listen = [::1]:x\n",
         ": listen wants a port from 0 to 65535 after the address, not \"x\""},
    };
    for (const auto& [text, problem] : kConfigs) {
        testkit::writeFile(conf, text);
        auto parsed = parse({}, conf);
        ASSERT_TRUE(std::holds_alternative<std::string>(parsed)) << problem;
        EXPECT_EQ(std::get<std::string>(parsed), conf + problem);
    }
}

} // namespace
} // namespace halvo::daemon
