/**
 * The life of a device under a controller, made from a seed: commands and answers get lost,
 * commits fail, people change things, devices restart, at any moment.
 */
#ifndef TESTS_CONTROLLER_DESIRED_HISTORY_H
#define TESTS_CONTROLLER_DESIRED_HISTORY_H

#include "tests/controller/desired_samples.h"
#include "tests/controller/desired_world.h"

namespace test {

class History {
  public:
    History(unsigned seed, Box &box) : chance_(seed), box_(box), world_(box, desire()) {
        box.edit("wl5g.public.web_max_power", "17");
    }

    void live() {
        const int disturbances = pick(12);
        for (int i = 0; i < disturbances; ++i) {
            for (int turns = pick(8); turns > 0; --turns) {
                world_.turn(fate());
            }
            disturb();
        }
    }

    /** All is well from here on; the device holds what it shall, now and after a restart. */
    void expect_good_end() {
        box_.fail_commits(0);
        world_.set_local(false);
        world_.reconnect();
        expect_in_sync();
        world_.restart();  // whoever was unbound by others tells it now
        expect_in_sync();
        EXPECT_EQ(box_.value("nx.project.id"), "42");
        EXPECT_EQ(box_.value("nx.manage.status"), "1");
        EXPECT_EQ(box_.value("sys.timezone"), "20");
        const int64_t days = (world_.now - begin_) / desired::day + 1;
        EXPECT_LE(world_.commands, most_commands(disturbances_ + 4) + 2 * days)
            << disturbances_ << " disturbances in " << days << " days";
    }

    /** Names of all commands. */
    const std::vector<std::string> &sent() const { return world_.sent; }

    /** Whatever happens once costs six commands at most: two to see it, four to mend it. */
    static int64_t most_commands(int64_t disturbances) { return 6 * disturbances; }

  private:
    void expect_in_sync() {
        EXPECT_EQ(world_.settle().state, desired::State::in_sync)
            << world_.look().reason << " " << nlohmann::json(world_.known.differences) << "\n"
            << text_of(world_.known);
        expect_configured(box_, world_.desire.configuration);
    }

    int pick(int count) { return static_cast<int>(chance_() % static_cast<unsigned>(count)); }

    desired::Desire desire() {
        const char *drift = "force";
        edits_ = pick(4) != 0;
        if (!edits_) {
            drift = "show";
        }
        desired::Desire desire;
        desire.site =
            desired::check_site(
                {{"name", "Harbour"},
                 {"project_id", 42},
                 {"cloud_id", "cloud-7"},
                 {"policies", {{"bind", pick(2) == 0 ? "unbound" : "always"}, {"drift", drift}}}})
                .document;
        desire.configuration = desired::check_configuration(configuration()).document;
        desire.version = "1";
        return desire;
    }

    Json configuration() {
        Json document = sample_configuration();
        document["ssids"][0]["vlan"] = pick(2) == 0 ? Json() : Json(20 + pick(3));
        document["ssids"][0]["bands"] = pick(2) == 0 ? Json{"5"} : Json{"2.4", "5"};
        document["ssids"][1]["enabled"] = pick(3) != 0;
        document["radios"]["5"]["power_dbm"] = 10 + pick(15);
        document["reboot"] = pick(3) == 0 ? Json() : Json{{"every_minutes", 60 * (1 + pick(3))}};
        if (pick(2) == 0) {
            document["reboot"] = {{"at", "04:30"}, {"days", {"mon", "sun"}}};
        }
        return document;
    }

    World::Fate fate() {
        if (pick(5) != 0) {
            return World::Fate::done;
        }
        disturbances_ += 1;
        return static_cast<World::Fate>(1 + pick(5));
    }

    void edit() {
        const std::pair<const char *, const char *> edits[] = {
            {"wl2g.ssid0.ssid", "Mine"},        {"wl5g.ssid0.wpapsk_psk", "my-own-phrase"},
            {"wl5g.ssid3.enable", "1"},         {"wl2g.public.channel", "11"},
            {"sys.schedulereboot.enable", "0"}, {"wl2g.ssid0.vlanid", "77"},
            {"nx.wireless_timestamp", "5"}};
        const auto &[key, value] = edits[pick(std::size(edits))];
        box_.edit(key, value);
    }

    void disturb() {
        disturbances_ += 1;
        switch (pick(11)) {
            case 0:
                return world_.restart();
            case 1:
                return world_.restart(2 + pick(9));  // the broker was away, too
            case 2:
                return world_.reconnect();
            case 3:
                return world_.configure(configuration());
            case 4: {
                const int commits = 1 + pick(3);
                disturbances_ += commits;
                return box_.fail_commits(commits);
            }
            case 5:
                if (edits_) {
                    edit();
                }
                return;
            case 6:
                world_.set_local(true);
                return;
            case 7:
                return world_.set_local(false);
            case 8:
                box_.restore();
                return world_.restart(1 + pick(2) * pick(9));
            case 9:
                box_.call("del_router_from_prj", {});
                return edits_ ? void() : world_.restart();
            default:
                world_.now += pick(3) * desired::day / 2;
        }
    }

    std::minstd_rand chance_;
    Box &box_;
    bool edits_ = false;
    World world_;
    int64_t disturbances_ = 0;
    desired::Time begin_ = 1'700'000'000;
};

}  // namespace test

#endif
