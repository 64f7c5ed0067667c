#include "tools/fleet/plan.h"

#include <fnmatch.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

namespace fleet {
namespace {

class Chance {
  public:
    explicit Chance(uint64_t seed) : engine_(seed) {}

    /** From 0 to below `bound`; the standard's own distributions differ by library. */
    size_t below(size_t bound) { return static_cast<size_t>(engine_() % bound); }

    int in(const Range &range) {
        return range.least +
               static_cast<int>(below(static_cast<size_t>(range.most - range.least) + 1));
    }

    template <typename List>
    void shuffle(List &list) {
        for (size_t i = list.size(); i > 1; --i) {
            std::swap(list[i - 1], list[below(i)]);
        }
    }

  private:
    std::mt19937_64 engine_;
};

/** A move or a new number of stations, whose stations are not yet drawn. */
struct Intent {
    double at;
    uint32_t step;
    uint32_t device; /**< that gets a new number */
    int number = -1; /**< -1: one roams */
};

class Planner {
  public:
    explicit Planner(const Scenario &scenario) : scenario_(scenario), chance_(scenario.seed) {}

    Plan make() {
        for (size_t i = 0; i < scenario_.groups.size(); ++i) {
            add_group(i);
        }
        for (uint32_t i = 0; i < scenario_.steps.size(); ++i) {
            add_step(i);
        }
        draw_stations();
        std::ranges::stable_sort(plan_.actions, {}, [](const Action &action) {
            return std::pair(action.at, action.step);
        });
        return std::move(plan_);
    }

  private:
    void add_group(size_t index) {
        const Group &group = scenario_.groups[index];
        for (int number = 1; number <= group.devices; ++number) {
            Planned device{serial_of(group.serial, number), index, {}};
            for (int left = chance_.in(group.stations); left > 0; --left) {
                device.stations.insert(++stations_);
            }
            plan_.devices.push_back(std::move(device));
        }
    }

    /** The devices of a selection, in an order of chance. */
    std::vector<uint32_t> select(const Selection &wanted) {
        std::vector<uint32_t> found;
        for (uint32_t i = 0; i < plan_.devices.size(); ++i) {
            const Planned &device = plan_.devices[i];
            if ((wanted.group.empty() || scenario_.groups[device.group].name == wanted.group) &&
                (wanted.serial.empty() ||
                 fnmatch(wanted.serial.c_str(), device.serial.c_str(), 0) == 0)) {
                found.push_back(i);
            }
        }
        chance_.shuffle(found);
        found.resize(
            static_cast<size_t>(std::lround(wanted.share * static_cast<double>(found.size()))));
        return found;
    }

    void add(double at, Deed deed, uint32_t step, uint32_t device) {
        plan_.actions.push_back({at, deed, step, device});
    }

    void add_step(uint32_t index) {
        const Step &step = scenario_.steps[index];
        if (step.verb == Verb::broker) {
            add(step.at, Deed::broker, index, 0);
            return;
        }
        const std::vector<uint32_t> devices = select(step.on);
        selected_.push_back(devices);
        if (step.verb == Verb::call) {
            add_calls(index, devices);
        } else if (step.verb == Verb::roam) {
            for (int i = 0; i < step.stations && devices.size() > 1; ++i) {
                intents_.push_back({step.at + step.over * i / step.stations, index,
                                    static_cast<uint32_t>(selected_.size() - 1)});
            }
        } else {
            for (size_t i = 0; i < devices.size(); ++i) {
                const double at = step.at + step.over * static_cast<double>(i) /
                                                static_cast<double>(devices.size());
                add_deed(index, devices[i], at);
            }
        }
    }

    void add_deed(uint32_t index, uint32_t device, double at) {
        const Step &step = scenario_.steps[index];
        switch (step.verb) {
            case Verb::start:
                return add(at, Deed::start, index, device);
            case Verb::stop:
                return add(at, Deed::stop, index, device);
            case Verb::power:
                add(at, Deed::cut, index, device);
                return add(at + step.off, Deed::start, index, device);
            default:
                break;
        }
        if (step.new_number) {
            intents_.push_back({at, index, device, chance_.in(*step.new_number)});
        }
        if (!step.config.is_null() || !step.hardware.is_null() || step.image) {
            add(at, Deed::set, index, device);
        }
    }

    void add_calls(uint32_t index, const std::vector<uint32_t> &devices) {
        const Step &step = scenario_.steps[index];
        const size_t count = step.lasts > 0
                                 ? static_cast<size_t>(std::floor(step.rate * step.lasts))
                                 : devices.size();
        for (size_t i = 0; i < count && !devices.empty(); ++i) {
            const double later = step.rate > 0 ? static_cast<double>(i) / step.rate : 0;
            add(step.at + later, Deed::call, index, devices[i % devices.size()]);
        }
    }

    /** Draws in the order of time, so that a station is always at one device. */
    void draw_stations() {
        std::vector<std::vector<uint32_t>> there;
        for (const Planned &device : plan_.devices) {
            there.emplace_back(device.stations.begin(), device.stations.end());
        }
        std::ranges::stable_sort(intents_, {}, &Intent::at);
        for (const Intent &intent : intents_) {
            intent.number < 0 ? draw_move(intent, there) : draw_number(intent, there);
        }
    }

    uint32_t take_one(std::vector<uint32_t> &stations) {
        std::swap(stations[chance_.below(stations.size())], stations.back());
        const uint32_t station = stations.back();
        stations.pop_back();
        return station;
    }

    void draw_move(const Intent &intent, std::vector<std::vector<uint32_t>> &there) {
        const std::vector<uint32_t> &devices = selected_[intent.device];
        std::vector<uint32_t> with;
        std::ranges::copy_if(devices, std::back_inserter(with),
                             [&](uint32_t device) { return !there[device].empty(); });
        if (with.empty()) {
            return;
        }
        const uint32_t from = with[chance_.below(with.size())];
        uint32_t to = from;
        while (to == from) {
            to = devices[chance_.below(devices.size())];
        }
        const uint32_t station = take_one(there[from]);
        there[to].push_back(station);
        plan_.actions.push_back({intent.at, Deed::leave, intent.step, from, station});
        plan_.actions.push_back({intent.at, Deed::join, intent.step, to, station});
    }

    void draw_number(const Intent &intent, std::vector<std::vector<uint32_t>> &there) {
        std::vector<uint32_t> &stations = there[intent.device];
        const auto wanted = static_cast<size_t>(intent.number);
        while (stations.size() != wanted) {
            const bool comes = stations.size() < wanted;
            const uint32_t station = comes ? ++stations_ : take_one(stations);
            if (comes) {
                stations.push_back(station);
            }
            plan_.actions.push_back(
                {intent.at, comes ? Deed::join : Deed::leave, intent.step, intent.device, station});
        }
    }

    const Scenario &scenario_;
    Chance chance_;
    Plan plan_;
    std::vector<std::vector<uint32_t>> selected_; /**< by those steps that roam, among others */
    std::vector<Intent> intents_;
    uint32_t stations_ = 0;
};

}  // namespace

Plan make_plan(const Scenario &scenario, const Slice &slice) {
    Plan plan = Planner(scenario).make();
    std::erase_if(plan.actions, [&](const Action &action) {
        return action.deed != Deed::broker && !slice.holds(action.device);
    });
    return plan;
}

std::string station_mac(uint32_t number) {
    char text[18];
    snprintf(text, sizeof text, "02:57:%02x:%02x:%02x:%02x", number >> 24, number >> 16 & 255,
             number >> 8 & 255, number & 255);
    return text;
}

}  // namespace fleet
