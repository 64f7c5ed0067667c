#include "tools/fleet/scenario.h"

#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <set>

#include "nxapi/settings.h"
#include "tools/fleet/schema.h"
#include "tools/nxctl_commands.h"
#include "virtual/folder/files.h"
#include "virtual/folder/values.h"

namespace fleet {
namespace {

constexpr int most_devices = 65'535;

struct VerbRow {
    const char *word;
    Verb verb;
};
constexpr VerbRow verbs[] = {
    {"start", Verb::start}, {"stop", Verb::stop},     {"power", Verb::power},
    {"roam", Verb::roam},   {"call", Verb::call},     {"fault", Verb::fault},
    {"set", Verb::set},     {"broker", Verb::broker},
};

/** Turns a document of the right form into a scenario, and looks at what a schema cannot
 *  tell: names that lead nowhere, texts that a device cannot hold, times. */
class Reader {
  public:
    explicit Reader(const LocatedJson &document) : document_(document) {}

    Scenario read(const std::string &default_name) {
        const Json &all = document_.value();
        Scenario made;
        made.name = all.value("name", default_name);
        made.seed = all.value("seed", uint64_t{1});
        made.speed = all.value("speed", 1.0);
        made.brokers = all.value("brokers", 1);
        made.answer_timeout = duration(all, "answer_timeout", 10);
        for (const Json &one : all.at("groups")) {
            made.groups.push_back(group(one, below("/groups", made.groups.size())));
        }
        for (const Json &one : all.at("steps")) {
            made.steps.push_back(step(made, one, below("/steps", made.steps.size())));
        }
        const Json goals = all.value("goals", Json::object());
        for (const auto &[name, bounds] : goals.items()) {
            made.goals.push_back(goal(name, bounds));
        }
        const double last = made.steps.empty() ? 0 : end_of(made.steps.back());
        made.lasts = duration(all, "for", last);
        if (made.lasts < (made.steps.empty() ? 0 : made.steps.back().at)) {
            fault("/for", "ends the run before its last step");
        }
        return made;
    }

    std::vector<std::string> faults;

  private:
    void fault(const std::string &pointer, const std::string &sentence) {
        faults.push_back(document_.fault(pointer, sentence));
    }

    static double duration(const Json &object, const char *name, double otherwise) {
        if (!object.contains(name)) {
            return otherwise;
        }
        const Json &value = object.at(name);
        return value.is_number() ? value.get<double>()
                                 : seconds_of(value.get<std::string>()).value_or(otherwise);
    }

    static double end_of(const Step &step) {
        return step.at + std::max(step.lasts, step.over + step.off);
    }

    void check_config(const Json &config, const std::string &pointer) {
        for (const auto &[key, value] : config.items()) {
            if (!vap::valid_key(key) || !vap::valid_value(value.get<std::string>())) {
                fault(below(pointer, key), "is no key and value of a device's configuration");
            }
        }
    }

    void check_cloud(const Json &cloud, const std::string &pointer) {
        std::string text;
        for (const auto &[key, value] : cloud.items()) {
            text += key + "=" + value.get<std::string>() + "\n";
        }
        nxapi::Settings settings;
        std::string why;
        if (cloud.contains("broker") || !nxapi::parse_settings(text, settings, why)) {
            fault(pointer, cloud.contains("broker") ? "names a broker, which the run does"
                                                    : "is wrong: " + why);
        }
    }

    Range range(const Json &value, const std::string &pointer) {
        const Range made{value.at(0), value.at(1)};
        if (made.most < made.least) {
            fault(pointer, "ends before it begins");
        }
        return made;
    }

    Group group(const Json &from, const std::string &pointer) {
        Group made;
        made.name = from.at("name");
        made.devices = from.at("devices");
        made.serial = from.at("serial");
        made.model = from.value("model", made.model);
        made.config = from.value("config", made.config);
        made.hardware = from.value("hardware", made.hardware);
        made.cloud = from.value("cloud", made.cloud);
        check_config(made.config, below(pointer, "config"));
        check_cloud(made.cloud, below(pointer, "cloud"));
        if (from.contains("stations")) {
            made.stations = range(from.at("stations"), below(pointer, "stations"));
        }
        if (!groups_.insert(made.name).second) {
            fault(below(pointer, "name"), "is the name of a group before");
        }
        if (const std::string why = serial_fault(made.serial, made.devices); !why.empty()) {
            fault(below(pointer, "serial"), why);
        }
        for (int i = 1; i <= made.devices; ++i) {
            if (!serials_.insert(serial_of(made.serial, i)).second) {
                fault(below(pointer, "serial"), "gives numbers that a group before has, too");
                break;
            }
        }
        if (serials_.size() > most_devices) {
            fault(below(pointer, "devices"),
                  "makes more than " + std::to_string(most_devices) + " devices");
        }
        return made;
    }

    Selection selection(const Json &from, const std::string &pointer) {
        const Selection made{from.value("group", ""), from.value("share", 1.0),
                             from.value("serial", "")};
        if (!made.group.empty() && !groups_.contains(made.group)) {
            fault(below(pointer, "group"), "is no group of this scenario");
        }
        if (!made.serial.empty() && std::ranges::none_of(serials_, [&](const std::string &serial) {
                return fnmatch(made.serial.c_str(), serial.c_str(), 0) == 0;
            })) {
            fault(below(pointer, "serial"), "matches no device");
        }
        return made;
    }

    Step step(const Scenario &before, const Json &from, const std::string &pointer) {
        const std::string word = from.at("do");
        Step made;
        made.verb = std::ranges::find(verbs, word, &VerbRow::word)->verb;
        made.at = duration(from, "at", 0);
        if (!before.steps.empty() && made.at < before.steps.back().at) {
            fault(below(pointer, "at"), "is before the step in front of it");
        }
        if (from.contains("on")) {
            made.on = selection(from.at("on"), below(pointer, "on"));
        }
        made.over = duration(from, "over", 0);
        made.off = duration(from, "off", 0);
        made.lasts = duration(from, "for", 0);
        made.rate = from.value("rate", 0.0);
        made.name = from.value("name", word);
        if (made.verb == Verb::roam) {
            made.stations = from.at("stations");
        } else if (made.verb == Verb::call) {
            read_call(from, pointer, made);
        } else if (made.verb == Verb::fault) {
            made.hardware = {{"faults", from.at("faults")}};
        } else if (made.verb == Verb::set) {
            read_set(from, pointer, made);
        } else if (made.verb == Verb::broker) {
            read_broker(before, from, pointer, made);
        }
        return made;
    }

    void read_call(const Json &from, const std::string &pointer, Step &made) {
        made.command = from.at("command");
        try {
            made.target = nxctl::target_of(made.command);
        } catch (const tools::Failure &why) {
            fault(below(pointer, "command"), std::string("leads nowhere: ") + why.what());
        }
        if (const nxctl::Command *command = nxctl::find_command(made.command)) {
            made.command = command->name;
        }
        made.request = from.contains("request") ? from.at("request").dump() : "";
        made.name = from.value("name", "call " + made.command);
        if (made.lasts > 0 && made.rate == 0) {
            fault(below(pointer, "for"), "needs a \"rate\"");
        }
    }

    void read_set(const Json &from, const std::string &pointer, Step &made) {
        made.config = from.value("config", Json());
        made.hardware = from.value("hardware", Json());
        check_config(made.config.is_null() ? Json::object() : made.config,
                     below(pointer, "config"));
        if (from.contains("stations")) {
            made.new_number = range(from.at("stations"), below(pointer, "stations"));
        }
        if (from.contains("image")) {
            made.image = {from.at("image").at("model"), from.at("image").at("size")};
        }
        if (made.config.is_null() && made.hardware.is_null() && !made.new_number && !made.image) {
            fault(pointer, "sets nothing");
        }
    }

    void read_broker(const Scenario &before, const Json &from, const std::string &pointer,
                     Step &made) {
        const int number = from.at("broker");
        if (number > before.brokers) {
            fault(below(pointer, "broker"), "is none of the scenario's \"brokers\"");
        }
        const std::string act = from.at("act");
        made.broker = static_cast<size_t>(number - 1);
        made.act = act == "stop"     ? BrokerAct::stop
                   : act == "freeze" ? BrokerAct::freeze
                                     : BrokerAct::start;
        made.name = from.value("name", act + " broker " + std::to_string(number));
    }

    static Goal goal(const std::string &name, const Json &bounds) {
        Goal made{name, {}, {}};
        if (bounds.is_number()) {
            made.at_most = bounds.get<double>();
            return made;
        }
        for (const auto &[key, bound] : bounds.items()) {
            (key == "at_most" ? made.at_most : made.at_least) = bound.get<double>();
        }
        return made;
    }

    const LocatedJson &document_;
    std::set<std::string> groups_;
    std::set<std::string> serials_;
};

[[noreturn]] void refuse(const std::vector<std::string> &faults) {
    constexpr size_t enough = 8;
    std::string all;
    for (size_t i = 0; i < std::min(faults.size(), enough); ++i) {
        all += (i == 0 ? "" : "\n") + faults[i];
    }
    throw tools::Failure(faults.size() > enough ? all + "\nand more" : all);
}

}  // namespace

Scenario parse_scenario(const std::string &name, const std::string &text) {
    const LocatedJson document(name, text);
    if (const auto faults = schema_faults(document, scenario_schema()); !faults.empty()) {
        refuse(faults);
    }
    Reader reader(document);
    Scenario scenario = reader.read(std::filesystem::path(name).stem().string());
    if (!reader.faults.empty()) {
        refuse(reader.faults);
    }
    return scenario;
}

Scenario read_scenario(const std::filesystem::path &file) {
    errno = 0;
    const std::optional<std::string> text = vap::read_file(file);
    if (!text) {
        throw tools::Failure(tools::cannot("read", file));
    }
    return parse_scenario(file.string(), *text);
}

Scenario plain_scenario(int devices, const std::string &serial, const std::string &model) {
    Scenario made;
    made.name = "fleet";
    Group group;
    group.name = "devices";
    group.devices = devices;
    group.serial = serial;
    group.model = model;
    made.groups.push_back(group);
    made.steps.emplace_back().name = "start";
    return made;
}

std::optional<double> seconds_of(const std::string &text) {
    double number = 0;
    char unit[4] = "s";
    char rest = 0;
    if (text.empty() || !isdigit(static_cast<unsigned char>(text[0])) ||
        sscanf(text.c_str(), "%lf%3[a-z]%c", &number, unit, &rest) < 1 || rest != 0) {
        return std::nullopt;
    }
    for (const auto &[name, seconds] : {std::pair("ms", 1e-3), std::pair("s", 1.0),
                                        std::pair("m", 60.0), std::pair("h", 3600.0)}) {
        if (name == std::string_view(unit)) {
            return number * seconds;
        }
    }
    return std::nullopt;
}

std::string serial_of(const std::string &pattern, int number) {
    const size_t open = pattern.find('{');
    const auto digits = static_cast<size_t>(pattern[open + 1] - '0');
    std::string text = std::to_string(number);
    if (text.size() > digits) {
        return "";
    }
    text.insert(0, digits - text.size(), '0');
    return pattern.substr(0, open) + text + pattern.substr(open + 3);
}

std::string serial_fault(const std::string &pattern, int devices) {
    const size_t open = pattern.find('{');
    if (open == pattern.npos || pattern.size() < open + 3 || pattern[open + 1] < '1' ||
        pattern[open + 1] > '9' || pattern[open + 2] != '}') {
        return "has no place for a number, such as {5} for five digits";
    }
    const std::string last = serial_of(pattern, devices);
    if (last.empty()) {
        return "has too few digits for " + std::to_string(devices) + " devices";
    }
    const bool plain =
        std::ranges::all_of(last, [](unsigned char c) { return isalnum(c) || c == '-'; });
    return plain && last.size() <= 32 ? ""
                                      : "makes no serial numbers: 1 to 32 letters, digits or -";
}

void resize(Scenario &scenario, int devices) {
    double before = 0;
    for (const Group &group : scenario.groups) {
        before += group.devices;
    }
    double left = before;
    int given = 0;
    const double factor = devices / before;
    for (size_t i = 0; i < scenario.groups.size(); ++i) {
        Group &group = scenario.groups[i];
        const auto others = static_cast<int>(scenario.groups.size() - i - 1);
        const int most = devices - given - others;
        const double share = group.devices / left * (devices - given);
        left -= group.devices;
        group.devices = std::max(1, std::min(most, static_cast<int>(std::lround(share))));
        given += group.devices;
    }
    for (Step &step : scenario.steps) {
        step.rate *= factor;
        if (step.stations > 0) {
            step.stations = std::max(1, static_cast<int>(std::lround(step.stations * factor)));
        }
    }
}

}  // namespace fleet
