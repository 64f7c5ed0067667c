#include "tests/controller/desired_world.h"

#include <algorithm>

namespace test {

using namespace desired;

void World::absorb(const Event &event) {
    desired::absorb(known, desire, event, now);
    // Another instance goes on with what was kept.
    known = known_of(text_of(known));
}

void World::greet() {
    absorb(Online{connection_, now * 1000});
    absorb(IdentityHeard{});
    absorb(BindingHeard{told_binding_});
}

bool World::is_local() {
    return box_.value("nx.manage.en") == "1" && box_.value("nx.manage.mode") == "2";
}

void World::boot(int attempts) {
    told_binding_ = box_.binding();
    told_local_ = is_local();
    connection_ = attempts;
    greet();
}

void World::restart(int attempts) {
    absorb(Offline{});
    box_.restart();
    now += 25;
    boot(attempts);
}

void World::reconnect() {
    absorb(Offline{});
    now += 3;
    connection_ += 1;
    greet();
}

void World::set_local(bool local) {
    box_.edit("nx.manage.mode", local ? "2" : "1");
    if (local) {
        absorb(ManageHeard{{{"manage", 2}}});
    }
    told_local_ = is_local();
}

void World::configure(const Json &configuration) {
    const Checked checked = check_configuration(configuration);
    ASSERT_TRUE(checked.ok());
    desire.configuration = checked.document;
    desire.version = std::to_string(++version_);
}

/** What must hold of every order, whatever happened. */
void World::look_at(const Order &order) {
    EXPECT_TRUE(known.in_flight == 0 || now >= known.sent_at + 60) << "one command at a time";
    EXPECT_EQ(order.number, commands + 1);
    if (order.stamp != 0) {
        EXPECT_GT(order.stamp, highest_stamp_) << "no stamp twice";
        EXPECT_GE(order.stamp, now);
        EXPECT_EQ(order.request.at("timestamp"), order.stamp);
        highest_stamp_ = order.stamp;
    }
    const bool is_harmless = order.task == Task::ask || order.task == Task::read;
    EXPECT_FALSE(!is_harmless && told_local_ && is_local()) << order.name << ": managed locally";
}

Next World::turn(Fate fate) {
    const Next next = look();
    if (!next.order) {
        now = std::max(now + 1, next.at.value_or(now + 3600));
        return next;
    }
    const Order &order = *next.order;
    look_at(order);
    absorb(Sent{order});
    commands = order.number;
    sent.emplace_back(order.name);
    now += 1;
    if (fate == Fate::restarts_before) {
        restart();
        return next;
    }
    Json answer;
    const bool arrives = fate != Fate::request_lost;
    if (arrives) {
        answer = box_.call(order.name, order.request);
    }
    const bool restarts = arrives && box_.takes_restart();
    if (restarts) {
        absorb(ManageHeard{{{"mode", "wireless"}, {"manage", 1}}});
        now += 1;
    }
    if (fate == Fate::request_lost || fate == Fate::answer_lost) {
        now += order.seconds;
        absorb(TimedOut{order.number});
    } else if (fate == Fate::done) {
        absorb(Answered{order.number, answer});
    }
    if (restarts || fate == Fate::restarts_after) {
        restart();
    }
    return next;
}

Next World::settle(int most_turns) {
    for (int i = 0; i < most_turns; ++i) {
        const Next next = look();
        const Time rest = next.state == State::in_sync ? 3600 : 12 * 3600;
        if (!next.order && next.at.value_or(now + rest) >= now + rest) {
            return next;
        }
        turn();
    }
    ADD_FAILURE() << "it never rests; " << text_of(known);
    return look();
}

namespace {

void expect_ssid(Box &box, const std::string &key, const Json *ssid) {
    const auto value = [&](const char *field) { return box.value(key + field); };
    if (ssid == nullptr || ssid->at("enabled") == false) {
        EXPECT_EQ(value("enable"), "0") << key;
        return;
    }
    const Json &wanted = *ssid;
    const bool is_open = wanted["security"] == "open";
    EXPECT_EQ(value("enable"), "1") << key;
    EXPECT_EQ(value("ssid"), wanted["name"]);
    EXPECT_EQ(value("hide"), wanted["hidden"] == true ? "1" : "0");
    EXPECT_EQ(value("security"), is_open ? "none" : "wpapsk");
    if (!is_open) {
        EXPECT_EQ(value("wpapsk_type"), wanted["security"] == "wpa" ? "psk" : "psk2");
        EXPECT_EQ(value("wpapsk_crypto"), wanted["cipher"]);
        EXPECT_EQ(value("wpapsk_psk"), wanted["passphrase"]);
    }
    EXPECT_EQ(value("vlanid"), wanted["vlan"].is_null() ? "1000" : wanted["vlan"].dump()) << key;
    EXPECT_EQ(value("sta_isolate"), wanted["isolate_clients"] == true ? "1" : "0");
    EXPECT_EQ(value("bss_maxassoc"), wanted["max_clients"].dump());
    EXPECT_EQ(value("nx.time_close"), wanted["off_times"].is_null() ? "0" : "1");
}

void expect_radio(Box &box, const std::string &key, const Json &wanted) {
    const auto value = [&](const char *field) { return box.value(key + field); };
    const auto clamped =
        std::max(std::min(wanted["power_dbm"].get<int>(), std::stoi("0" + value("web_max_power"))),
                 std::stoi("0" + value("min_power")));
    EXPECT_EQ(value("enable"), wanted["enabled"] == true ? "1" : "0");
    EXPECT_EQ(value("channel"), wanted["channel"] == "auto" ? "0" : wanted["channel"].dump());
    EXPECT_EQ(value("current_power"), std::to_string(clamped));
    EXPECT_EQ(value("rssi_max"),
              std::to_string(std::max(-90, wanted["min_signal_dbm"].get<int>())));
}

}  // namespace

void expect_configured(Box &box, const Json &configuration) {
    const char *stems[] = {"wl2g.", "wl5g."};
    for (size_t band = 0; band < 2; ++band) {
        const auto slots = slots_of(configuration, bands[band]);
        for (size_t slot = 0; slot < bands[band].slots; ++slot) {
            expect_ssid(box, stems[band] + ("ssid" + std::to_string(slot) + "."),
                        slot < slots.size() ? slots[slot] : nullptr);
        }
        expect_radio(box, stems[band] + std::string("public."),
                     configuration["radios"][bands[band].name]);
    }
    const Json &reboot = configuration["reboot"];
    const std::string schedule = "sys.schedulereboot.";
    EXPECT_EQ(box.value(schedule + "enable"), reboot.is_null() ? "0" : "1");
    if (!reboot.is_null()) {
        const bool is_cyclic = reboot.contains("every_minutes");
        EXPECT_EQ(box.value(schedule + "type"), is_cyclic ? "0" : "1");
        EXPECT_EQ(box.value(schedule + (is_cyclic ? "interval" : "start_time")),
                  is_cyclic ? Json(reboot["every_minutes"].dump()) : reboot["at"]);
    }
}

}  // namespace test
