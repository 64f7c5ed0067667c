/*
 * nxctl call: one command for one device or for many.
 */
#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <sstream>

#include "tools/nxctl_check.h"
#include "tools/nxctl_files.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_orders.h"
#include "tools/nxctl_output.h"
#include "tools/text.h"

namespace nxctl {
namespace {

using tools::Misuse;

struct CallWish {
    std::string whom, command, request; /**< as they stand on the command line */
    bool all = false;
    bool follow = false;
    bool json = false;
    Filter filter;
    Form form;
};

/** "SN1,SN2*" as its parts; "-" as the lines of standard input. */
std::vector<std::string> named(const std::string &whom) {
    std::istringstream given(whom == "-" ? whole_file("-") : whom);
    const char separator = whom == "-" ? '\n' : ',';
    std::vector<std::string> serials;
    for (std::string serial; std::getline(given, serial, separator);) {
        if (serial.ends_with('\r')) {
            serial.pop_back();
        }
        if (!serial.empty() || separator == ',') {
            check_serial(serial);
            serials.push_back(serial);
        }
    }
    return serials;
}

/** With --all no serial number stands in front. */
void shift_words(CallWish &wish) {
    if (!wish.request.empty()) {
        throw Misuse("--all takes no SERIAL");
    }
    wish.request = wish.command;
    wish.command = wish.whom;
    wish.whom.clear();
}

std::string request_text(const std::string &word) {
    if (word == "-") {
        return whole_file("-");
    }
    return word.starts_with('@') ? whole_file(word.substr(1)) : word;
}

void complete_form(CallWish &wish) {
    const Command *known = find_command(wish.command);
    wish.form.target = target_of(wish.command);
    wish.form.request = request_text(wish.request);
    if (wish.form.checks && known != nullptr) {
        if (const std::string faults = faults_of(*known, wish.form.request); !faults.empty()) {
            throw Misuse(faults + "; nothing was sent");
        }
    }
    if (wish.follow) {
        if (known == nullptr || known->completion.uploads.empty()) {
            throw Misuse("the answer to " + wish.command + " completes it: no upload follows");
        }
        wish.form.until = known->completion.uploads;
        wish.form.until_timeout =
            wish.form.until_timeout > 0 ? wish.form.until_timeout : known->completion.seconds;
    }
}

/** The response as the agent made it, for a pipe; for a terminal what it may show. */
void print_as_it_is(const std::string &payload, bool ends_line) {
    const bool people = is_terminal();
    std::string text = people ? tools::shown(payload, true) : payload;
    if ((people && !text.empty()) || ends_line) {
        text += '\n';
    }
    print(text);
}

void call_one(Brokers &brokers, const CallWish &wish, const std::string &serial) {
    Orders orders(brokers, wish.form);
    int exit = done;
    std::string failure;
    orders.on_answer = [&](const Order &order) {
        print_as_it_is(order.answer->payload, wish.follow);
    };
    orders.on_end = [&](const Order &order) {
        exit = order.exit;
        failure = order.failure;
        if (order.upload) {
            print_as_it_is(order.upload->payload, true);
        }
    };
    orders.run({serial});
    if (!failure.empty()) {
        throw tools::Failure(failure, exit);
    }
}

constexpr std::array outcomes{
    std::pair{int{done}, "answered"},
    std::pair{int{refused}, "could not answer"},
    std::pair{int{unanswered}, "did not answer"},
    std::pair{int{unwilling}, "did not do it"},
    std::pair{int{tools::failed}, "refused by the broker"},
};

/** How many devices ended how. */
class Tally {
  public:
    void add(int exit) { counts_[exit]++; }

    /** "12 devices: 10 answered, 2 did not answer" */
    std::string text(size_t devices) const {
        std::string line = std::to_string(devices) + (devices == 1 ? " device" : " devices");
        const char *separator = ": ";
        for (const auto &[exit, word] : outcomes) {
            if (const auto found = counts_.find(exit); found != counts_.end()) {
                line += separator + std::to_string(found->second) + " " + word;
                separator = ", ";
            }
        }
        return line;
    }

    int worst() const { return counts_.empty() ? int{unanswered} : counts_.rbegin()->first; }

  private:
    std::map<int, size_t> counts_;
};

Json as_json(const Order &order) {
    const auto *const outcome = std::ranges::find(
        outcomes, order.exit, [](const std::pair<int, const char *> &row) { return row.first; });
    Json line = {{"serial", order.serial}, {"exit", order.exit}, {"outcome", outcome->second}};
    if (!order.failure.empty()) {
        line["failure"] = order.failure;
    }
    if (order.answer) {
        line["response"] = parse_json(order.answer->payload).value_or(Json(order.answer->payload));
    }
    if (order.upload) {
        const std::string kind = place_of(order.upload->topic)->below.substr(3);
        line["upload"] = {{"kind", kind}, {"data", upload_value(kind, order.upload->payload)}};
    }
    return line;
}

std::string for_people(const Order &order) {
    std::string text;
    if (order.answer && order.exit != refused) {
        text = tools::shown(order.serial) + "\n" +
               tools::indented(order.answer->payload, terminal_width());
    }
    if (order.upload) {
        const std::string below = place_of(order.upload->topic)->below;
        text += tools::shown(order.serial + " " + below) + "\n" +
                upload_text(below.substr(3), order.upload->payload);
    }
    return text;
}

void call_many(Brokers &brokers, const CallWish &wish, const std::vector<std::string> &serials) {
    Orders orders(brokers, wish.form);
    Progress progress;
    Tally tally;
    size_t ended = 0;
    orders.on_end = [&](const Order &order) {
        tally.add(order.exit);
        progress.clear();
        print(wish.json ? json_line(as_json(order)) : for_people(order));
        if (!wish.json && !order.failure.empty()) {
            complain(order.failure);
        }
        progress.show(std::to_string(++ended) + " of " + tally.text(serials.size()));
    };
    orders.run(serials);
    progress.clear();
    const std::string summary = tally.text(serials.size());
    if (tally.worst() != done) {
        throw tools::Failure(summary, tally.worst());
    }
    std::fprintf(stderr, "%s\n", summary.c_str());
}

void call(const Options &options, CallWish &wish) {
    if (wish.all) {
        shift_words(wish);
    }
    if (wish.command.empty() || (wish.whom.empty() && !wish.all)) {
        throw Misuse(wish.whom.empty() && !wish.all ? "SERIAL is required" : "COMMAND is required");
    }
    if (wish.whom == "-" && wish.request == "-") {
        throw Misuse("standard input holds either the serial numbers or the request");
    }
    wish.filter.serials = wish.all ? std::vector<std::string>() : named(wish.whom);
    complete_form(wish);
    const std::vector<std::string> &serials = wish.filter.serials;
    const bool filtered =
        wish.all || wish.filter.narrows() || std::ranges::any_of(serials, is_pattern);
    Brokers brokers(access_of(options));
    if (!filtered && !wish.json && wish.whom != "-" && serials.size() == 1) {
        call_one(brokers, wish, serials.front());
        return;
    }
    Fleet fleet;
    if (filtered) {
        load(brokers, fleet, wish.filter);
    }
    const std::vector<std::string> whom = chosen(fleet, wish.filter);
    if (whom.empty()) {
        throw tools::Failure("no device is meant: the broker knows none of that kind", unanswered);
    }
    call_many(brokers, wish, whom);
}

constexpr const char *examples =
    "Examples:\n"
    "  nxctl call SN0001 add_router_to_prj '{\"cloud_id\":\"c1\",\"project_id\":7}'\n"
    "  nxctl call SN0001 dev/0\n"
    "  nxctl call SN0001 wlan_config_set @ssids.json --check\n"
    "  nxctl call SN0001 net_check --follow\n"
    "  nxctl call 'SN00*' reboot_download --follow --parallel 8\n"
    "  nxctl call --all status_upload --online --json\n"
    "  nxctl call SN0001 system/serial SN0002\n"
    "\n"
    "SERIAL may be a list (SN1,SN2), a pattern of the shell's kind ('SN*'), or -:\n"
    "standard input then holds a serial number or a pattern a line.\n"
    "\n"
    "Exit status: 0 answered; 2 the agent could not answer; 3 nobody answered in\n"
    "time, or the device is not connected; 4 with --check or --follow, the device\n"
    "answered that it did not do it; 64 the command line, or with --check the\n"
    "request, is wrong; 1 any other failure. Of several devices the highest counts.";

}  // namespace

void add_call_command(CLI::App &app, const Options &options) {
    CLI::App *command = app.add_subcommand("call", "Sends a command, prints the response");
    command->footer(examples);
    const auto wish = std::make_shared<CallWish>();
    wish->form.parallel = 32;
    const tools::Words serials = known_serials(options);
    tools::offer(
        command->add_option("SERIAL", wish->whom, "Device, list, pattern or -; none with --all"),
        [serials, wish] { return wish->all ? command_names() : serials(); });
    tools::offer(command->add_option("COMMAND", wish->command, "Handler name or family/slot"),
                 command_names);
    command->add_option("JSON", wish->request, "Request; @FILE reads a file, - standard input");
    add_filter_options(*command, wish->filter);
    command->add_flag("--all", wish->all, "Every device that the brokers know");
    command->add_flag("--check", wish->form.checks, "Check the request and the response");
    command->add_flag("--wait", wish->form.waits, "Wait for a device that is away");
    command->add_flag("--follow", wish->follow, "Wait for the upload that completes the order");
    command
        ->add_option("--timeout", wish->form.timeout,
                     "For the answer, and with --wait for the device")
        ->type_name("SECONDS")
        ->check(tools::number(0.001, 86400))
        ->capture_default_str();
    command
        ->add_option("--follow-timeout", wish->form.until_timeout,
                     "For the upload; else what the command usually needs")
        ->type_name("SECONDS")
        ->check(tools::number(0.001, 86400));
    command->add_option("--parallel", wish->form.parallel, "Devices at once")
        ->type_name("N")
        ->check(tools::number(1, 1000))
        ->capture_default_str();
    command->add_flag("--json", wish->json, "A JSON object a line, one for each device");
    command->callback([&options, wish] { call(options, *wish); });
}

}  // namespace nxctl
