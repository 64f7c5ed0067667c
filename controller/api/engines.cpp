// For engines: the event stream, the reference, health, metrics.

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include "api_yaml.h"
#include "controller/api/routes.h"

namespace api {
namespace {

/** Server-sent events of the feed, from behind one on. */
class EventStream : public http::Stream {
  public:
    EventStream(fleet::Feed &feed, const std::string &last_event) : feed_(feed), at_(feed.last()) {
        const long long last =
            last_event.size() < 19 ? std::strtoll(last_event.c_str(), nullptr, 10) : 0;
        if (feed.reaches(last)) {
            at_ = last;
        } else {  // what was missed is not there any more, or the client is new
            pending_ = "id: " + std::to_string(at_) + "\nevent: reset\ndata: {}\n\n";
        }
    }

    std::string next() override {
        std::string text = std::exchange(pending_, "");
        for (const fleet::Event *event = nullptr;
             text.size() < most_at_once && (event = feed_.after(at_)) != nullptr;) {
            at_ = event->id;
            text += "id: " + std::to_string(event->id) + "\nevent: " + event->type +
                    "\ndata: " + event->data + "\n\n";
        }
        return text;
    }

    void on_more(std::function<void()> wake) override {
        if (key_ != 0) {
            feed_.unwatch(std::exchange(key_, 0));
        }
        if (wake) {
            key_ = feed_.watch(std::move(wake));
        }
    }

  private:
    static constexpr size_t most_at_once = 64 * 1024;

    fleet::Feed &feed_;
    long long at_;
    long long key_ = 0;
    std::string pending_;
};

http::Response text(const std::string &body, const char *type, int status = 200) {
    http::Response response;
    response.status = status;
    response.headers = {{"content-type", type}};
    response.body = body;
    return response;
}

prometheus::ClientMetric sample(double value,
                                std::vector<prometheus::ClientMetric::Label> labels = {}) {
    prometheus::ClientMetric metric;
    metric.gauge.value = value;
    metric.label = std::move(labels);
    return metric;
}

/** A metric of each device: a figure of its reports, or something else that is known. */
struct DeviceMetric {
    const char *name;
    const char *help;
    const char *figure;
    double factor;
    const char *band; /**< a label; null for none */
};
constexpr DeviceMetric device_metrics[] = {
    {"norvex_device_cpu_ratio", "Processor in use.", "cpu", 0.01, nullptr},
    {"norvex_device_memory_ratio", "Memory in use.", "memory", 0.01, nullptr},
    {"norvex_device_clients", "Associated clients.", "clients_24", 1, "2.4"},
    {"norvex_device_clients", "Associated clients.", "clients_5", 1, "5"},
    {"norvex_device_receive_bits_per_second", "Traffic that the uplink receives.", "up_rate", 1024,
     nullptr},
    {"norvex_device_transmit_bits_per_second", "Traffic that the uplink sends.", "down_rate", 1024,
     nullptr},
};

prometheus::MetricFamily family(const char *name, const char *help) {
    prometheus::MetricFamily family;
    family.name = name;
    family.help = help;
    family.type = prometheus::MetricType::Gauge;
    return family;
}

std::vector<prometheus::MetricFamily> families_of(const fleet::Fleet &fleet) {
    std::vector<prometheus::MetricFamily> families;
    families.push_back(family("norvex_device_up", "1 for a device that is online."));
    families.push_back(
        family("norvex_device_config_state", "1 for the state of its configuration."));
    for (const auto &[serial, device] : fleet.devices()) {
        families[0].metric.push_back(sample(device.is_online(), {{"serial", serial}}));
        families[1].metric.push_back(
            sample(1, {{"serial", serial}, {"state", device.config_state}}));
    }
    for (const DeviceMetric &row : device_metrics) {
        if (families.back().name != row.name) {
            families.push_back(family(row.name, row.help));
        }
        for (const auto &[serial, device] : fleet.devices()) {
            const auto value = device.figures.find(row.figure);
            if (!device.is_online() || value == device.figures.end() || !value->is_number()) {
                continue;
            }
            std::vector<prometheus::ClientMetric::Label> labels{{"serial", serial}};
            if (row.band != nullptr) {
                labels.push_back({"band", row.band});
            }
            families.back().metric.push_back(sample(value->get<double>() * row.factor, labels));
        }
    }
    return families;
}

}  // namespace

awaitable<http::Response> events(Context &context) {
    http::Response response;
    response.headers = {{"content-type", "text/event-stream"}, {"x-accel-buffering", "no"}};
    const std::string last = context.request.header("last-event-id");
    response.stream = std::make_shared<EventStream>(
        context.service.fleet.feed(), last.empty() ? context.query("last_event_id") : last);
    co_return response;
}

awaitable<http::Response> openapi(Context &) {
    co_return text(api_yaml, "application/yaml");
}

awaitable<http::Response> healthz(Context &) {
    co_return text("ok\n", "text/plain");
}

/** Ready: the database takes a job, and a broker is there. */
awaitable<http::Response> readyz(Context &context) {
    co_await query(context.service, [](store::Sql &sql) { return sql.row("SELECT 1 AS one"); });
    if (context.service.brokers_up() == 0) {
        throw Problem{503, "no broker is connected"};
    }
    co_return text("ok\n", "text/plain");
}

awaitable<http::Response> metrics(Context &context) {
    std::vector<prometheus::MetricFamily> families = families_of(context.service.fleet);
    const auto add = [&](const char *name, const char *help, double value) {
        families.push_back(family(name, help));
        families.back().metric.push_back(sample(value));
    };
    add("norvex_brokers", "Brokers in the list.", static_cast<double>(context.service.brokers));
    add("norvex_brokers_up", "Brokers that are connected.",
        static_cast<double>(context.service.brokers_up()));
    add("norvex_event_streams", "Event streams that are open.",
        static_cast<double>(context.service.fleet.feed().watching()));
    add("norvex_database_waiting", "Jobs that wait for the database.",
        static_cast<double>(context.service.database.waiting()));
    co_return text(prometheus::TextSerializer().Serialize(families),
                   "text/plain; version=0.0.4; charset=utf-8");
}

}  // namespace api
