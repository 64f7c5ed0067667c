#include "net/reachability.h"

#include "builtin.h"
#include "tests/net/records.h"

namespace {

using test::run;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using vap::Json;

const std::string header = "PING cloud (192.0.2.1): 32 data bytes\n";
const std::string statistics =
    "\n--- cloud ping statistics ---\n"
    "5 packets transmitted, 5 packets received, 0% packet loss\n"
    "round-trip min/avg/max = 8.1/8.2/8.3 ms\n";

std::string replies(const std::vector<std::string> &times) {
    std::string text;
    for (const std::string &time : times) {
        text += "40 bytes from 192.0.2.1: seq=0 ttl=57 time=" + time + " ms\n";
    }
    return text;
}

TEST(JudgePing, ReadsTheOutput) {
    const std::string four = replies({"8.1", "8.2", "8.3", "8.4"});
    const std::string five = four + replies({"8.5"});
    const struct {
        const char *why;
        std::string output;
        bool answered;
        bool fast;
    } rows[] = {
        {"five fast", header + five + statistics, true, true},
        {"the fraction is dropped: the average is 30",
         header + replies({"10", "20", "30", "40", "50.9"}) + statistics, true, true},
        {"50 on average", header + replies({"50", "50.9", "50", "50", "50"}), true, true},
        {"slow by 0.2 ms on average", header + replies({"50", "50", "50", "50", "51"}), true,
         false},
        {"four fast", header + four + statistics, true, false},
        {"a line of another kind between them", header + four + "no answer yet\n" + four, true,
         true},
        {"another tool's form",
         header + "40 bytes from a.b (192.0.2.1): icmp_seq=1 ttl=57 time=8.2 ms\n", true, false},
        {"nobody answered", header + statistics, false, false},
        {"nothing", "", false, false},
        {"header only: its ttl is no reply", "PING cloud ttl 64", true, false},
        {"header line only", "PING cloud ttl 64\n", true, false},
        {"one reply that makes no sense spoils all", header + five + "ttl exceeded\n", false,
         false},
        {"no time: it counts as 0 ms",
         header + replies({"62", "62", "62", "62"}) + "40 bytes from 192.0.2.1: seq=4 ttl=57\n",
         true, true},
        {"cut inside the fifth ttl", header + four + "40 bytes from 192.0.2.1: seq=4 ttl=5", true,
         true},
        {"cut behind the word ttl", header + four + "40 bytes from 192.0.2.1: seq=4 ttl", false,
         false},
        {"endless fields",
         header + five + "40 bytes from " + std::string(900, 'a') + ": " + std::string(900, 's') +
             "=" + std::string(900, 'n') + " ttl=" + std::string(900, '9') +
             " time=" + std::string(900, '9') + " ms\n",
         true, false},
    };
    for (const auto &row : rows) {
        std::string output = row.output;
        const PingVerdict verdict = judge_ping(output.data());
        EXPECT_EQ(verdict.answered, row.answered) << row.why;
        EXPECT_EQ(verdict.fast, row.fast) << row.why;
    }
}

class Reachability : public test::Device {
  protected:
    /** What pings of a host show: milliseconds, null for a lost reply. */
    static void answer(const std::string &host, const Json &replies) {
        Json behaviour = {{"address", "192.0.2.1"}};
        behaviour["replies"] = replies;
        vap::patch_hardware({{"ping", {{host, behaviour}}}});
    }
};

TEST_F(Reachability, RefusesWhatIsNoSafeHost) {
    const std::string longest(226, 'h');  // "ping … 2>&1" in 255 bytes
    const std::string too_long = longest + 'h';
    char output[64] = "untouched";
    for (const char *host : {static_cast<const char *>(nullptr), "", "a b", "a'b", "a\"b", "-f",
                             "a;b", "a\nb", too_long.c_str()}) {
        const PingRequest request{4, 1, 32, 3, host};
        EXPECT_THAT(output_of(
                        [&] {
                            EXPECT_EQ(cmd_get_ping_output(host != nullptr ? &request : nullptr,
                                                          output, sizeof output),
                                      1);
                        },
                        false),
                    MatchesRegex(host == too_long.c_str()
                                     ? "invalid cmd \\[ping h+.*\\]\n"
                                     : "IN cmd_get_ping_output on [0-9]+ cmd check error\n"));
    }
    EXPECT_STREQ(output, "untouched");
    EXPECT_THAT(effects({"popen"}), IsEmpty());
    const PingRequest request{4, 1, 32, 3, longest.c_str()};
    EXPECT_EQ(cmd_get_ping_output(&request, output, sizeof output), 0);
}

TEST_F(Reachability, KeepsAsMuchOutputAsFits) {
    const PingRequest request{4, 3, 32, 3, "192.0.2.7"};
    char output[12];
    EXPECT_EQ(cmd_get_ping_output(&request, output, sizeof output), 0);
    EXPECT_STREQ(output, "PING 192.0.");
    EXPECT_THAT(effects({"popen"}), ElementsAre("popen ping 192.0.2.7 -4 -c 3 -s 32 -W 3 2>&1 re"));
    vap::fail("popen");
    EXPECT_EQ(output_of([&] { EXPECT_EQ(cmd_get_ping_output(&request, output, sizeof output), 1); },
                        false),
              "invalid cmd [ping 192.0.2.7 -4 -c 3 -s 32 -W 3 2>&1]\n");
}

TEST_F(Reachability, PingsTheGateway) {
    answer("192.0.2.1", Json::array({2.5}));
    answer("192.0.2.2", Json::array({nullptr}));
    const struct {
        const char *why;
        const char *gateway;
        const char *ini;   // "/etc/lan.ini" from here on; null: as it is
        const char *host;  // what is pinged, none for null
        const char *record;
    } rows[] = {
        {"answers", "192.0.2.1", nullptr, "192.0.2.1", "4:0"},
        {"is silent", "192.0.2.2", nullptr, "192.0.2.2", "4:-1"},
        {"none set is not DHCP", "", nullptr, nullptr, "4:-1"},
        {"no DHCP file", "0.0.0.0", nullptr, nullptr, "4:-1"},
        {"no gateway in it", "0.0.0.0", "ip=192.0.2.9\n", nullptr, "4:-1"},
        {"gateway of DHCP", "0.0.0.0", "ip=192.0.2.9\ngateway=192.0.2.1\n", "192.0.2.1", "4:0"},
    };
    for (const auto &row : rows) {
        set("lan.gw", row.gateway);
        if (row.ini != nullptr) {
            write_file("/etc/lan.ini", row.ini);
        }
        effects();
        EXPECT_THAT(run(check_ping_gate), ElementsAre("0", row.record)) << row.why;
        std::vector<std::string> commands;
        if (row.host != nullptr) {
            commands = {std::string("popen ping ") + row.host + " -4 -c 1 -s 32 -W 3 2>&1 re"};
        }
        EXPECT_EQ(effects({"popen"}), commands) << row.why;
    }
    write_file("/etc/lan.ini", "");
    EXPECT_THAT(output_of([] { run(check_ping_gate); }),
                ::testing::EndsWith("] : can not get LanDhcpcGW form file"))
        << "without a line end, and nothing is pinged";
}

TEST_F(Reachability, PingsTheCloudServer) {
    const struct {
        const char *why;
        Json replies;
        std::vector<std::string> result;
    } rows[] = {
        {"fast", {8, 9, 10, 11, 12}, {"0", "12:0", "13:0"}},
        {"a reply was lost", {8, 9, nullptr, 11, 12}, {"0", "12:0", "13:-1"}},
        {"silent", {nullptr, nullptr, nullptr, nullptr, nullptr}, {"-1", "12:-1", "13:-1"}},
    };
    for (const auto &row : rows) {
        answer(NX_CLOUD_HOST, row.replies);
        EXPECT_EQ(run(check_ping_norvex), row.result) << row.why;
        EXPECT_THAT(effects({"popen"}),
                    ElementsAre("popen ping " NX_CLOUD_HOST " -4 -c 5 -s 32 -W 3 2>&1 re"));
    }
    vap::fail("popen");
    EXPECT_THAT(run(check_ping_norvex), ElementsAre("-1", "12:-1", "13:-1"));
}

}  // namespace
