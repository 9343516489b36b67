#include "Config.h"

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

using testing::HasSubstr;

std::string faultOf(const std::string &text) {
    try {
        Config::parse(text, "milter.toml");
        return "none";
    } catch (const ConfigError &error) {
        return error.what();
    }
}

struct Case {
    std::string text;
    const char *fault;
};

TEST(Config, RefusesWithPlaceAndRemedy) {
    const Case cases[] = {
        {"rules = [", "milter.toml:1:"},
        {"\n[scan]\nthreshhold = 5\n", "milter.toml:3:1: unknown key 'scan.threshhold'; there are "
                                       "budget, percent, threshold"},
        {"[scann]\n", "milter.toml:1:2: unknown key 'scann'; there are actions"},
        {"rules = \"/etc\"\n", "milter.toml:1:9: rules: this is no list of texts"},
        {"rules = []\n", "rules: no directory; write at least one"},
        {"rules = [\"rules\"]\n", "rules: 'rules' is no absolute path"},
        {"rules = [\"/a\\u0000b\"]\n", "holds a NUL"},
        {"scan = 1\n", "scan: this is no table; write its keys below a line [scan]"},
        {"[scan]\nthreshold = \"5\"\n", "scan.threshold: this is no number"},
        {"[scan]\nthreshold = nan\n", "scan.threshold: this is no number"},
        {"[scan]\npercent = 101\n", "scan.percent: this is no number from 0 to 100 per cent"},
        {"[scan]\npercent = 1.5\n", "scan.percent: this is no whole number"},
        {"[limits]\nmessage_bytes = 0\n", "limits.message_bytes: this is no number from 1"},
        {"[limits]\nwait = 2.5\n", "limits.wait: this is no number from 0 to 2 seconds"},
        {"[milter]\nsocket = \"milter.sock\"\n", "milter.socket: the path is not absolute"},
        {"[milter]\nsocket = \"/" + std::string(100, 'x') + "\"\n", "longer than"},
        {"[milter]\nsocket = \"inet:8890@localhost\"\n", "milter.socket: no port and numeric"},
        {"[milter]\nsocket = \"inet:65536@127.0.0.1\"\n", "milter.socket: no port and numeric"},
        {"[milter]\nsocket = \"inet:8890\"\n", "milter.socket: no port and numeric"},
        {"[milter]\nsocket_mode = \"0999\"\n", "milter.socket_mode: no permissions in octal"},
        {"[control]\nsocket = \"x\"\n", "control.socket: no absolute path"},
        {"[control]\nmetrics = \"0.0.0.0:9464\"\n", "control.metrics: no address of this machine"},
        {"[control]\nmetrics = \"127.0.0.1\"\n", "control.metrics: no address of this machine"},
        {"[sets]\ndirectory = \"sets\"\n", "sets.directory: no absolute path"},
        {"[sets]\nkeep = -1\n", "sets.keep: this is no number from 0"},
        {"[shadow]\nrules = [\"x\"]\n", "shadow.rules: 'x' is no absolute path"},
        {"[headers]\nprefix = \"X Corvane\"\n", "headers.prefix: no beginning of a header's name"},
        {"[headers]\nreport = 1\n", "headers.report: this is neither true nor false"},
        {"[[actions]]\nmin = 5\n", "actions.action is missing"},
        {"[[actions]]\naction = \"tag\"\n", "actions.min is missing"},
        {"[[actions]]\nmin = 5\naction = \"drop\"\n",
         "actions.action: this is none of the words it can be; write one of none, tag,"},
        {"[[actions]]\nmin=5\naction=\"tag\"\n[[actions]]\nmin=5\naction=\"none\"\n",
         "two bands from the same score"},
        {"[[actions]]\nmin=5\naction=\"reject\"\ntext=\"50 % off\"\n", "actions.text: no text"},
        {"[[actions]]\nmin=5\naction=\"reject\"\ntext=\"a\\nb\"\n", "actions.text: no text"},
        {"[[actions]]\nmin=5\naction=\"tag\"\ntext=\"a\"\n", "only a refusal has a text"},
        {"actions = 1\n", "actions: this is no list of tables"},
        {"[on_error]\nbusy = \"accept\"\n", "unknown key 'on_error.busy'"},
        {"[skip]\nnetworks = [\"192.0.2.1/24\"]\n", "skip.networks: '192.0.2.1/24' is no network"},
        {"[skip]\nrecipients = [\"joe\"]\n", "skip.recipients: 'joe' is no recipient"},
        {"[log]\nlevel = \"loud\"\n", "log.level: this is none of the words"},
        {"\"a\\nb\" = 1\n", "unknown key 'a\\x0ab'"},
    };
    for (const Case &each : cases) {
        EXPECT_THAT(faultOf(each.text), HasSubstr(each.fault)) << each.text;
    }
}

TEST(Config, TellsAllFaultsInTheOrderOfTheirLines) {
    const std::string faults = faultOf("[scan]\nbudget = -1\nx = 1\n[headers]\nreport = 2\n");
    EXPECT_LT(faults.find(":2:"), faults.find(":3:"));
    EXPECT_LT(faults.find(":3:"), faults.find(":5:"));
    EXPECT_NE(faults.find(":5:"), std::string::npos);
}

TEST(Config, TakesWhatIsWritten) {
    const Config config = Config::parse(
        "rules = [\"/a\", \"/b\"]\n[milter]\nsocket = \"inet:8890@::1\"\nsocket_mode = \"600\"\n"
        "[scan]\nthreshold = 7\nbudget = 0.25\n[limits]\nheader_bytes = 1000\nwait = 0.5\n"
        "[[actions]]\nmin = 10\naction = \"discard\"\n[[actions]]\nmin = -inf\naction = \"none\"\n"
        "[skip]\nrecipients = [\"Joe@Example.org\"]\n[on_error]\nbudget = \"tempfail\"\n",
        "milter.toml");
    EXPECT_EQ(config.rules, (std::vector<std::string>{"/a", "/b"}));
    EXPECT_EQ(config.socket.host, "::1");
    EXPECT_EQ(config.socket.port, 8890U);
    EXPECT_EQ(config.socket.mode, 0600U);
    EXPECT_EQ(config.scanOptions().budget, std::chrono::milliseconds(250));
    EXPECT_EQ(config.scanOptions().limits.headerBytes, 1000U);
    EXPECT_EQ(config.bounds.wait, std::chrono::milliseconds(500));
    EXPECT_EQ(config.onError.budget, OnError::TempFail);
    EXPECT_EQ(config.skip.recipients.front(), "joe@example.org");
    EXPECT_EQ(config.bandOf(-1e30F)->action, Action::None);
    EXPECT_EQ(config.bandOf(9.999F)->action, Action::None);
    EXPECT_EQ(config.bandOf(10)->action, Action::Discard);
    EXPECT_EQ(Config::parse("", "x").bandOf(1000), nullptr);
}

// The fault of an unknown key names all others of its table.
TEST(Config, ManPageNamesEachKey) {
    const std::string page = TempDir::read(CORVANE_CONFIG_PAGE);
    for (const char *table :
         {"", "[milter]\n", "[control]\n", "[sets]\n", "[shadow]\n", "[scan]\n", "[limits]\n",
          "[headers]\n", "[[actions]]\n", "[on_error]\n", "[skip]\n", "[log]\n"}) {
        const std::string fault = faultOf(std::string(table) + "unknown = 1\n");
        const std::size_t list = fault.find("there are ") + 10;
        std::istringstream keys(fault.substr(list, fault.find(", see", list) - list));
        std::string key;
        while (std::getline(keys >> std::ws, key, ',')) {
            EXPECT_TRUE(page.find("Ic " + key + "\n") != std::string::npos ||
                        page.find("[" + key + "]") != std::string::npos)
                << key;
        }
    }
}

TEST(Config, TakesTheOneThatIsShipped) {
    const Config config = Config::read(CORVANE_SHIPPED_CONFIG);
    EXPECT_EQ(config.rules, Config().rules);
    EXPECT_EQ(config.bands.size(), 1U);
}

TEST(Config, NamesTheFileThatCannotBeRead) {
    const TempDir directory;
    for (const std::string &file : {directory.path("none.toml"), directory.path()}) {
        try {
            Config::read(file);
            ADD_FAILURE() << file;
        } catch (const ConfigError &error) {
            EXPECT_THAT(error.what(), HasSubstr(file + ": cannot be read: "));
        }
    }
}

} // namespace
} // namespace Corvane::Milter
