/**
 * Fleets: scenarios and their faults, plans, reports, and the programs at work.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

#include "paths.h"
#include "tests/support/broker.h"
#include "tools/fleet/calls.h"
#include "tools/fleet/fork_server.h"
#include "tools/fleet/limits.h"
#include "tools/fleet/plan.h"
#include "tools/fleet/report.h"
#include "tools/fleet/schema.h"
#include "virtual/folder/hardware.h"
#include "virtual/folder/lock.h"

namespace {

using namespace fleet;
using testing::HasSubstr;
using testing::IsEmpty;

const std::filesystem::path scenarios =
    std::filesystem::path(NORVEX_SOURCE_DIR) / "config/scenarios";

std::string text_of(const std::filesystem::path &path) {
    return vap::read_file(path).value_or("");
}

std::string fault_of(const std::string &text) {
    try {
        parse_scenario("a.json", text);
    } catch (const tools::Failure &failure) {
        return failure.what();
    }
    return "";
}

/** A scenario with these members besides one group of four devices. */
std::string with(const std::string &steps, const std::string &more = "") {
    return R"({"groups": [{"name": "g", "devices": 4, "serial": "A{2}", "stations": [2, 5]}],)"
           "\n\"steps\": [" +
           steps + "]" + more + "}";
}

TEST(FleetScenario, TellsLineColumnAndPathOfAFault) {
    const struct {
        std::string text;
        const char *fault;
    } rows[] = {
        {"{\"groups\": [],\n  oops}", "a.json:2:3: no JSON"},
        {"// only\n// comments\n", "no JSON"},
        {"{\"a\\\"\": /*}*/ [1,2], // ]\n \"a\\\"\": {}}", "a.json:2:2: /a\" stands there twice"},
        {"{\"groups\": 1,\n \"groups\": 2}", "a.json:2:2: /groups stands there twice"},
        {std::string(100, '[') + std::string(100, ']'), "a.json:1:66: nested too deep"},
        {"[]", "a.json:1:1: the scenario is not an object"},
        {with("", ",\n/* \\\" */ \"tempo\": 2"), "a.json:3:10: /tempo is not known here"},
        {with("{\"at\": 0, \"do\": \"dance\"}"), "a.json:2:21: /steps/0/do is none of \"start\""},
        {with("{\"at\": 0}"), "/steps/0 lacks \"do\""},
        {with("{\"at\": 0, \"do\": \"power\"}"), "/steps/0 lacks \"off\""},
        {with("{\"at\": \"soon\", \"do\": \"start\"}"),
         "/steps/0/at is none of a number of seconds"},
        {with("{\"at\": -1, \"do\": \"start\"}"), "/steps/0/at is none of"},
        {with("{\"at\": 0, \"do\": \"start\", \"over\": true}"), "/steps/0/over is none of"},
        {with("{\"at\": 5, \"do\": \"start\"},\n{\"at\": 4, \"do\": \"stop\"}"),
         "a.json:3:2: /steps/1/at is before the step in front of it"},
        {with("{\"at\": 0, \"do\": \"start\", \"on\": {\"group\": \"h\"}}"),
         "/steps/0/on/group is no group"},
        {with("{\"at\": 0, \"do\": \"start\", \"on\": {\"share\": 1.5}}"), "is not at most 1"},
        {with("{\"at\": 0, \"do\": \"start\", \"on\": {\"serial\": \"B*\"}}"), "matches no device"},
        {with("{\"at\": 0, \"do\": \"call\", \"command\": \"dev/99\"}"),
         "/steps/0/command leads nowhere"},
        {with("{\"at\": 0, \"do\": \"call\", \"command\": \"dev/0\", \"for\": 3}"),
         "needs a \"rate\""},
        {with("{\"at\": 0, \"do\": \"set\"}"), "/steps/0 sets nothing"},
        {with("{\"at\": 0, \"do\": \"set\", \"config\": {\"a key\": \"\"}}"),
         "/steps/0/config/a key"},
        {with("{\"at\": 0, \"do\": \"set\", \"stations\": [3, 1]}"), "ends before it begins"},
        {with("{\"at\": 0, \"do\": \"broker\", \"broker\": 2, \"act\": \"stop\"}"),
         "/steps/0/broker is none of"},
        {with("{\"at\": 9, \"do\": \"start\"}", ", \"for\": 5"), "/for ends the run before"},
        {with("", ", \"goals\": {\"lost\": {}}"), "/goals/lost is none of"},
        {R"({"steps": [], "groups": [{"name": "g", "devices": 10, "serial": "A{1}"}]})",
         "too few digits"},
        {R"({"steps": [], "groups": [{"name": "g", "devices": 1, "serial": "A{1}", "cloud": {"keepalive_s": "1"}}]})",
         "/groups/0/cloud is wrong"},
    };
    for (const auto &row : rows) {
        EXPECT_THAT(fault_of(row.text), HasSubstr(row.fault)) << row.text;
    }
    EXPECT_EQ(fault_of(with("{\"at\": \"1.5m\", \"do\": \"start\"}")), "");
}

TEST(FleetScenario, EveryGoalOfTheSchemaHasAFigure) {
    std::set<std::string> described;
    for (const auto &[name, row] :
         scenario_schema().at("properties").at("goals").at("properties").items()) {
        described.insert(name);
    }
    EXPECT_THAT(goal_names(), testing::UnorderedElementsAreArray(described));
}

TEST(FleetPlan, SlicesMakeTheWholeAndAStationIsAtOneDevice) {
    const Scenario scenario = parse_scenario("a.json", with(R"({"at": 0, "do": "start", "over": 2},
            {"at": 1, "do": "roam", "stations": 40, "over": 8},
            {"at": 2, "do": "set", "stations": [0, 6], "over": 5},
            {"at": 3, "do": "call", "command": "dev/0", "rate": 7, "for": 4, "on": {"share": 0.5}},
            {"at": 9, "do": "power", "off": 2, "on": {"serial": "A0[12]"}})"));
    const Plan whole = make_plan(scenario);
    size_t parts = 0;
    for (const uint32_t part : {1U, 2U, 3U}) {
        const Slice slice{part, 3};
        for (const Action &action : make_plan(scenario, slice).actions) {
            EXPECT_TRUE(slice.holds(action.device));
            ++parts;
        }
    }
    EXPECT_EQ(parts, whole.actions.size());

    std::set<std::pair<uint32_t, uint32_t>> there;
    for (uint32_t i = 0; i < whole.devices.size(); ++i) {
        for (const uint32_t station : whole.devices[i].stations) {
            there.insert({i, station});
        }
    }
    std::set<uint32_t> called, cut;
    size_t calls = 0;
    double before = 0;
    for (const Action &action : whole.actions) {
        EXPECT_GE(action.at, before);
        before = action.at;
        if (action.deed == Deed::leave) {
            EXPECT_EQ(there.erase({action.device, action.station}), 1U);
        } else if (action.deed == Deed::join) {
            EXPECT_TRUE(std::ranges::none_of(
                there, [&](const auto &one) { return one.second == action.station; }));
            there.insert({action.device, action.station});
        } else if (action.deed == Deed::call) {
            called.insert(action.device);
            ++calls;
        } else if (action.deed == Deed::cut) {
            cut.insert(action.device);
        }
    }
    EXPECT_EQ(calls, 28U);
    EXPECT_EQ(called.size(), 2U);
    EXPECT_EQ(cut, (std::set<uint32_t>{0, 1}));

    Scenario other = scenario;
    ++other.seed;
    EXPECT_NE(make_plan(other).devices[0].stations.size() * 1000 + make_plan(other).actions.size(),
              whole.devices[0].stations.size() * 1000 + whole.actions.size());
    resize(other, 3);
    EXPECT_EQ(make_plan(other).devices.size(), 3U);
}

TEST(FleetReport, PercentilesAreWithinTheirPrecision) {
    Histogram times;
    for (uint64_t us = 1; us <= 100'000; ++us) {
        times.add(us);
    }
    for (const double share : {0.001, 0.5, 0.99, 1.0}) {
        const double exact = share * 100'000;
        EXPECT_GE(static_cast<double>(times.percentile(share)), exact);
        EXPECT_LE(static_cast<double>(times.percentile(share)), exact * (1 + 1.0 / 64) + 1);
    }
}

/** Figures of a slice in which each answer took so many milliseconds. */
Figures slice_figures(const char *slice, uint64_t ms) {
    Figures figures;
    figures.scenario = "day";
    figures.slice = slice;
    figures.devices = 10;
    figures.restarts = 5;
    figures.registered_within = static_cast<double>(ms);
    figures.wakeups_of_one = ms == 1 ? 0.1 : -1;
    figures.uploads["alarm"] = 2;
    figures.steps.push_back({.name = "start", .planned = 10, .done = 10});
    CallFigures &call = figures.calls.emplace_back();
    call.command = "dev/0";
    call.missing = 1;
    call.times.add(ms * 1000, 100);
    figures.missing["A" + std::to_string(ms)] = 1;
    return figures;
}

TEST(FleetReport, SlicesMergeAndTheirGoalsAreJudgedAnew) {
    const test::TempFolder folder;
    const std::vector<Goal> goals{{"missing_answers", {}, 1},
                                  {"answer_p50_ms", {}, 2},
                                  {"answer_p99_ms", {}, 8},
                                  {"restarts", 0.5, 0.5},
                                  {"settings_lost", {}, 0}};
    std::vector<std::filesystem::path> files;
    for (const auto &[slice, ms] : {std::pair("1/2", 1), std::pair("2/2", 9)}) {
        const Figures figures = slice_figures(slice, static_cast<uint64_t>(ms));
        files.push_back(folder.path() / std::to_string(ms));
        write_report(files.back(), {figures, judge(goals, figures)});
    }
    const Report all = merge_reports(files);
    EXPECT_EQ(all.figures.devices, 20U);
    EXPECT_EQ(all.figures.slice, "1/2, 2/2");
    EXPECT_EQ(all.figures.registered_within, 9);
    EXPECT_EQ(all.figures.wakeups_of_one, 0.1);
    EXPECT_EQ(all.figures.uploads.at("alarm"), 4U);
    EXPECT_EQ(all.figures.steps[0].done, 20U);
    EXPECT_EQ(all.figures.missing.size(), 2U);
    std::vector<bool> met;
    for (const Verdict &verdict : all.verdicts) {
        met.push_back(verdict.met);
    }
    EXPECT_EQ(met, (std::vector<bool>{false, true, false, true, true}));
    EXPECT_FALSE(all.good());
    EXPECT_THAT(table_of(all), HasSubstr("MISSED"));
    EXPECT_THROW(merge_reports({files[0], files[0]}), tools::Failure);
    std::ofstream(files[1]) << "{}";
    EXPECT_THROW(merge_reports(files), tools::Failure);
}

TEST(FleetCalls, TellsLateMissingAndSecondAnswersApart) {
    Scenario scenario =
        parse_scenario("a.json", with(R"({"at": 0, "do": "call", "command": "dev/0"},
            {"at": 0, "do": "call", "command": "status_upload"},
            {"at": 0, "do": "call", "command": "dev/1"})"));
    scenario.answer_timeout = 0;
    Figures figures;
    Calls calls(scenario, figures);
    ASSERT_EQ(figures.calls.size(), 2U) << "two names of one command";
    for (const uint32_t device : {3U, 4U, 5U}) {
        calls.sent(scenario.steps[0], device);
    }
    calls.away(scenario.steps[2]);
    calls.answered(1, false);
    calls.answered(1, true);
    calls.answered(99, true);
    EXPECT_TRUE(calls.waits());
    calls.expire();
    EXPECT_FALSE(calls.waits());
    calls.answered(2, true);
    const CallFigures &row = figures.calls[0];
    EXPECT_EQ(row.sent, 3U);
    EXPECT_EQ(row.answered, 2U);
    EXPECT_EQ(row.refused, 1U);
    EXPECT_EQ(row.twice, 1U);
    EXPECT_EQ(row.late, 1U);
    EXPECT_EQ(row.missing, 1U);
    EXPECT_EQ(row.times.count(), 2U);
    EXPECT_EQ(calls.missing(), (std::map<uint32_t, uint64_t>{{3, 1}}));
    EXPECT_EQ(figures.calls[1].away, 1U);
}

TEST(FleetLimits, SaysWhatTheMachineLacks) {
    const auto sentences = shortages(limits({10'000'000, 1, "/", 10'000'000}));
    for (const char *what : {"devices: 10000000 are needed", "processes and threads", "memory",
                             "descriptors of one process", "disk"}) {
        EXPECT_THAT(sentences, testing::Contains(HasSubstr(what)));
    }
    EXPECT_THAT(shortages(limits({1, 1, "/", 1})), IsEmpty());
}

class FleetAtWork : public testing::Test {
  protected:
    std::string path(const std::string &name) const { return (folder_.path() / name).string(); }

    /** Runs vap fleet for at most 100 seconds; its exit status. */
    int run(const std::string &arguments) {
        const int status =
            std::system(("TMPDIR=" + path("") + " timeout 100 " NORVEX_RUN_DIR "/vap fleet " +
                         arguments + " >" + path("out") + " 2>&1")
                            .c_str());
        return WEXITSTATUS(status);
    }

    /** Has the process ended? Nobody may be there to wait for it. */
    static bool ends(pid_t process) {
        return test::eventually([&] {
            const std::string stat = text_of("/proc/" + std::to_string(process) + "/stat");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return stat.empty() || stat.find(") Z ") != stat.npos;
        });
    }

    /** The next report of a server. */
    static vap::ForkReport report_of(ForkServer &server) {
        pollfd ready{server.fd(), POLLIN, 0};
        if (poll(&ready, 1, 20'000) <= 0) {
            ADD_FAILURE() << "no report";
            return {};
        }
        vap::ForkReport report;
        recv(server.fd(), &report, sizeof report, 0);
        return report;
    }

    /** A device in a folder of its own. */
    std::string device(const std::string &serial) {
        vap::create_device(path(serial), {.serial = serial});
        return path(serial);
    }

    test::TempFolder folder_;
};

TEST_F(FleetAtWork, ForksDevicesTellsTheirEndsAndTheirChanges) {
    ForkServer server(NORVEX_RUN_DIR "/norvex", 1, false);
    const std::string one = device("ONE");
    server.start(7, one, path("log"));
    const vap::ForkReport started = report_of(server);
    ASSERT_EQ(started.tag, 7U);
    ASSERT_GT(started.pid, 0) << started.status;
    server.start(7, one, path("log"));
    EXPECT_EQ(report_of(server).status, EBUSY);

    const std::string service = one + "/root/tmp/auto.socket";
    ASSERT_TRUE(test::eventually([&] { return std::filesystem::exists(service); }));
    vap::Hardware(one + "/hardware.json").patch({{"discovery", "absent"}});
    EXPECT_TRUE(test::eventually([&] { return !std::filesystem::exists(service); }))
        << "the device does not hear of its new description";

    server.signal(7, SIGKILL);
    const vap::ForkReport ended = report_of(server);
    EXPECT_EQ(ended.kind, vap::ForkReport::ended);
    EXPECT_EQ(ended.pid, started.pid);
    EXPECT_TRUE(WIFSIGNALED(ended.status));
    server.start(7, one, path("log"));
    EXPECT_GT(report_of(server).pid, 0);

    server.start(8, path("nowhere"), path("log8"));
    EXPECT_GT(report_of(server).pid, 0);
    EXPECT_EQ(WEXITSTATUS(report_of(server).status), 255);
    EXPECT_THAT(text_of(path("log8")), HasSubstr("nowhere"));
}

TEST_F(FleetAtWork, NothingOutlivesAKilledOwner) {
    device("ONE");
    int ends_of_pipe[2];
    ASSERT_EQ(pipe2(ends_of_pipe, O_CLOEXEC), 0);
    const pid_t owner = fork();
    if (owner == 0) {
        ForkServer server(NORVEX_RUN_DIR "/norvex", 1, false);
        server.start(0, path("ONE"), path("log"));
        const pid_t pid = report_of(server).pid;
        [[maybe_unused]] const ssize_t written = write(ends_of_pipe[1], &pid, sizeof pid);
        pause();
    }
    pid_t agent = 0;
    ASSERT_EQ(read(ends_of_pipe[0], &agent, sizeof agent), static_cast<ssize_t>(sizeof agent));
    ASSERT_GT(agent, 0);
    kill(owner, SIGKILL);
    waitpid(owner, nullptr, 0);
    EXPECT_TRUE(ends(agent));
    close(ends_of_pipe[0]);
    close(ends_of_pipe[1]);
}

TEST_F(FleetAtWork, NothingOutlivesAKilledFleet) {
    test::Child tool({NORVEX_RUN_DIR "/vap", "fleet", "run", "--dir", path("d"), "--devices", "2",
                      "--agent", NORVEX_RUN_DIR "/norvex"},
                     path("log"));
    const std::string device = path("d") + "/FLEET00002";
    test::eventually([&] {
        return text_of(device + "/agent.log").find("nxapi: connected") != std::string::npos;
    });
    const std::string settings = text_of(device + "/root/etc/nxapi.conf");
    const int port = std::atoi(settings.c_str() + settings.rfind(':') + 1);
    ASSERT_TRUE(test::is_listening(port)) << settings;
    EXPECT_THROW(vap::RunLock{device}, std::runtime_error);
    tool.end(SIGKILL);
    test::eventually([&] { return !test::is_listening(port); });
    test::eventually([&] {
        try {
            const vap::RunLock lock(device);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    });
}

TEST_F(FleetAtWork, StationsRoamBetweenDevicesThatAreThere) {
    std::ofstream(path("roam.json")) << with(
        R"({"at": 0, "do": "start"}, {"at": 0.5, "do": "roam", "stations": 6, "over": 0.3},
           {"at": 1, "do": "set", "on": {"serial": "A01"}, "stations": [7, 7]})",
        ", \"for\": 1.5");
    const std::string line = "run " + path("roam.json") + " --dir " + path("d") + " --report " +
                             path("r") + " --agent " NORVEX_RUN_DIR "/norvex";
    for (const int again : {0, 1}) {
        ASSERT_EQ(run(line), 0) << text_of(path("out")) << again;
        const Json report = Json::parse(text_of(path("r")), nullptr, false);
        EXPECT_EQ(report.at("roams"), 6);
        std::set<std::string> macs;
        size_t stations = 0;
        for (const char *serial : {"A01", "A02", "A03", "A04"}) {
            const Json there =
                vap::Hardware(path("d") + "/" + serial + "/hardware.json").at("/stations");
            EXPECT_TRUE(serial != std::string("A01") || there.size() == 7);
            for (const auto &[mac, station] : there.items()) {
                macs.insert(mac);
                ++stations;
            }
        }
        EXPECT_EQ(macs.size(), stations) << "a station is at two devices";
    }
}

TEST_F(FleetAtWork, MakesAFleetAndRunsItUntilItIsEnded) {
    ASSERT_EQ(run("new " + path("cafes") + " --devices 3 --serial 'CAFE{4}'"), 0);
    EXPECT_NE(run("new " + path("cafes") + " --devices 3"), 0) << "it is there";
    const test::Broker broker;
    test::Console console(broker);
    console.publish("norvex/v1/STRANGER/status", R"({"online":true})", "", "", true);
    test::eventually([&] {
        console.loop();
        return !console.on("norvex/v1/STRANGER/status").empty();
    });
    test::Child tool(
        {NORVEX_RUN_DIR "/vap", "fleet", "run", "--dir", path("cafes"), "--broker", broker.url(),
         "--report", path("report"), "--agent", NORVEX_RUN_DIR "/norvex"},
        path("log"));
    for (const char *serial : {"CAFE0001", "CAFE0002", "CAFE0003"}) {
        test::eventually([&] {
            console.loop();
            return console.last("norvex/v1/" + std::string(serial) + "/status")
                .payload.starts_with("{\"online\":true");
        });
    }
    EXPECT_EQ(WEXITSTATUS(tool.end(SIGINT)), 0) << text_of(path("log"));
    const Json report = Json::parse(text_of(path("report")), nullptr, false);
    EXPECT_EQ(report.value("registrations", 0), 3);
    test::eventually([&] {
        console.loop();
        return console.last("norvex/v1/CAFE0003/status").payload.starts_with("{\"online\":false");
    });
}

TEST_F(FleetAtWork, ACrashAndAMissedGoalShowInReportAndStatus) {
    std::ofstream(path("crash.json")) << R"({
        "answer_timeout": 1, "for": 3,
        "groups": [{"name": "g", "devices": 2, "serial": "A{1}", "model": "ZX-A5"}],
        "steps": [
            {"at": 0, "do": "start", "on": {"serial": "A1"}},
            {"at": 0, "do": "fault", "on": {"serial": "A2"}, "faults": [{"op": "apmib_init"}]},
            {"at": 0.1, "do": "start", "on": {"serial": "A2"}},
            {"at": 1, "do": "call", "command": "dev/0"}],
        "goals": {"lost": 0, "missing_answers": 0}})";
    EXPECT_EQ(run("run " + path("crash.json") + " --report " + path("r") +
                  " --agent " NORVEX_RUN_DIR "/norvex --for 3s"),
              2);
    const Json report = Json::parse(text_of(path("r")), nullptr, false);
    EXPECT_EQ(report.at("lost"), 1);
    EXPECT_EQ(report.at("ended").at(0).at("serial"), "A2");
    EXPECT_EQ(report.at("ended").at(0).at("how"), "ended with status 255");
    EXPECT_EQ(report.at("calls").at(0).at("answered"), 1);
    EXPECT_EQ(report.at("calls").at(0).at("away"), 1);
    EXPECT_EQ(report.at("goals").at(0).at("met"), false);
    EXPECT_EQ(report.at("goals").at(1).at("met"), true);
    std::ofstream(path("crash.json")) << "{}";
    EXPECT_EQ(run("run " + path("crash.json")), 1);
    EXPECT_THAT(text_of(path("out")), HasSubstr("crash.json:1:1: the scenario lacks \"groups\"\n"));
}

/** The shipped scenarios, small and fast. */
struct Shipped {
    const char *name;
    const char *options;
    const char *shows; /**< in the report */
};
void PrintTo(const Shipped &shipped, std::ostream *out) {
    *out << shipped.name;
}
class FleetShipped : public FleetAtWork, public testing::WithParamInterface<Shipped> {};

TEST_P(FleetShipped, MeetsItsGoals) {
    const std::string file = (scenarios / GetParam().name).string() + ".json";
    EXPECT_EQ(run("run " + file + " " + GetParam().options + " --report " + path("r") +
                  " --agent " NORVEX_RUN_DIR "/norvex"),
              0)
        << text_of(path("out"));
    EXPECT_THAT(text_of(path("r")), HasSubstr(GetParam().shows));
}

INSTANTIATE_TEST_SUITE_P(
    All, FleetShipped,
    testing::Values(Shipped{"office-day", "--devices 12 --speed 20", "\"alarm\": "},
                    Shipped{"power-failure", "--devices 20 --speed 6", "\"registrations\": 40"},
                    Shipped{"bad-firmware", "--devices 10 --speed 5", "\"restarts\": 8"},
                    Shipped{"broker-loss", "--devices 9 --speed 1.5", "\"freeze broker 2\""}),
    [](const auto &shipped) {
        std::string name = shipped.param.name;
        std::erase(name, '-');
        return name;
    });

}  // namespace
