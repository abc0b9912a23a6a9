// nvk cron, nvk task and nvk scheduler: what they print, and their exit statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "nvk/services/CSchedulerService.h"
#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

namespace {

// The tool converts its result to the local zone; these cases are written in UTC.
struct UtcTool : ::testing::Test {
    nvktest::ZoneScope utc{"UTC0"};
};

}  // namespace

TEST_F(UtcTool, CronNext) {
    EXPECT_TOOL("cron next '0 30 2 * * ? *' --at '2024-03-14 03:00:00'", 0,
                "frequency: daily\nnext: 2024-03-15T02:30:00\n");
    EXPECT_TOOL("cron next '0 0 9 ? * 2,4 *' --at 2024-03-14T03:00:00 --offset 30 --json", 0,
                "{\"frequency\":\"weekly\",\"next\":\"2024-03-18T08:30:00\"}\n");
    EXPECT_TOOL("cron next '0 0 0 29 2 ? *' --json --at '2024-03-01 00:00:00'", 0,
                "{\"frequency\":\"monthly\",\"next\":\"2028-02-29T00:00:00\"}\n");
    EXPECT_TOOL("cron next '0 0 0 31 2 ? *' --json", 0, "{\"frequency\":\"none\",\"next\":null}\n");
    EXPECT_TOOL("cron next '0 0 12 1 1 ? 2000'", 0, "frequency: none\nnext: none\n");
    EXPECT_TOOL("cron next '0 0 12 1 1 ? 9999' --json", 0, "{\"frequency\":\"once\",\"next\":\"9999-01-01T12:00:00\"}\n");
    EXPECT_TOOL("cron next 'every day'", 0, "frequency: none\nnext: none\n");
}

TEST(CronCommand, BadUsage) {
    const std::string usage = runTool("help cron").out;
    std::string usageText = usage.substr(0, usage.find("\n\n")) + "\n";
    EXPECT_TOOL("cron", 2, "nvk cron: expected 'next'\n" + usageText);
    EXPECT_TOOL("cron next", 2, "nvk cron: next takes a SPEC\n" + usageText);
    EXPECT_TOOL("cron next '0 0 9 * * ? *' --at 2024-03-14", 2,
                "nvk cron: --at takes \"YYYY-MM-DD HH:MM:SS\", not '2024-03-14'\n" + usageText);
    EXPECT_TOOL("cron next '0 0 9 * * ? *' --offset 1h", 2,
                "nvk cron: --offset takes minutes, at most a year either way, not '1h'\n" + usageText);
    EXPECT_TOOL("cron next '0 0 9 * * ? *' --utc", 2, "nvk cron: unknown option '--utc'\n" + usageText);
}

TEST_F(UtcTool, TaskShow) {
    EXPECT_TOOL("task show examples/nightly-clean.xml --at '2024-03-14 03:00:00'", 0,
                "name: nightly-clean\ngroup: core\ntask: Protocol Protocols/clean-and-score.json\n"
                "trigger: Cron 0 30 2 * * ? *\nowner: alice\ndisabled: NONE\n"
                "param Input folder: /data/stations/incoming\nparam Minimum score: 0.75\n"
                "frequency: daily\nnext: 2024-03-15T02:30:00\n");
    // An ExternalEvent task shows its event.
    nvktest::TempDir dir;
    std::ofstream(dir / "on upload.xml")
        << "<SchedulerTask><Property name=\"TaskSpec\">p.json</Property>"
           "<Property name=\"TriggerType\">ExternalEvent</Property><Property name=\"EventID\">upload-done</Property>"
           "</SchedulerTask>";
    EXPECT_TOOL("task show '" + (dir / "on upload.xml").string() + "'", 0,
                "name: on upload\ngroup: core\ntask: Protocol p.json\ntrigger: ExternalEvent \nevent: upload-done\n"
                "owner: \ndisabled: NONE\nfrequency: none\nnext: none\n");
    EXPECT_TOOL("task show examples/broken.json", 1,
                "warning: examples/broken.json: a task file's name ends in .xml (and not .2.xml)\n"
                "nvk task: examples/broken.json is not a valid scheduler task\n");
}

// The client commands against the real service.
TEST(SchedulerCommand, AddListAndDelete) {
    nvktest::TempDir root;
    nvk::CSchedulerService service(tovan::toWide(root.path().string()), u"K1");
    std::string url = "http://127.0.0.1:" + std::to_string(service.start());
    std::string common = " --server " + url + "/ --session K1";
    EXPECT_TOOL("scheduler add" + common + " --user bob examples/nightly-clean.xml --name 'Nuit \xC3\xA9t\xC3\xA9'", 0,
                "added Nuit \xC3\xA9t\xC3\xA9\n");
    EXPECT_TOOL("scheduler list" + common, 0,
                "Nuit \xC3\xA9t\xC3\xA9  owner=bob  Protocol Protocols/clean-and-score.json  Cron \"0 30 2 * * ? *\"\n"
                "1 task\n");
    EXPECT_TOOL("scheduler add" + common + " --user bob examples/nightly-clean.xml --name 'Nuit \xC3\xA9t\xC3\xA9'", 1,
                "nvk scheduler: POST " + url + "/schedulercrud/tasks failed: HTTP 409: Task Nuit \xC3\xA9t\xC3\xA9 of bob "
                "already exists\n");
    EXPECT_TOOL("scheduler delete" + common + " --user bob 'Nuit \xC3\xA9t\xC3\xA9'", 0, "deleted Nuit \xC3\xA9t\xC3\xA9\n");
    EXPECT_TOOL("scheduler list" + common, 0, "0 tasks\n");

    const std::string usage = runTool("help scheduler").out;
    std::string usageText = usage.substr(0, usage.find("\n\n")) + "\n";
    EXPECT_TOOL("scheduler add" + common + " examples/nightly-clean.xml", 2,
                "nvk scheduler: --server, --session and --user are required\n" + usageText);
    EXPECT_TOOL("scheduler delete" + common + " --user bob", 2, "nvk scheduler: delete takes one NAME\n" + usageText);
    EXPECT_TOOL("scheduler list" + common + " --timeout 0", 2,
                "nvk scheduler: --timeout takes a positive number of milliseconds, not '0'\n" + usageText);
    EXPECT_TOOL("scheduler serve --port 80", 2, "nvk scheduler: serve needs --root DIR\n" + usageText);
    EXPECT_TOOL("scheduler serve --root x --port 70000", 2,
                "nvk scheduler: --port takes 0 to 65535, not '70000'\n" + usageText);
    EXPECT_TOOL("scheduler serve --root " + (root / "missing").string(), 1,
                "nvk scheduler: --root " + (root / "missing").string() + " is not a folder\n");
    EXPECT_TOOL("scheduler serve --root examples/nightly-clean.xml", 1,
                "nvk scheduler: --root examples/nightly-clean.xml is not a folder\n");
}
