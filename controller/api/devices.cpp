// The fleet list, and what people edit of a device.

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "controller/api/routes.h"
#include "controller/converge/converger.h"

namespace api {
namespace {

using fleet::Device;
using Type = Json::value_t;

bool holds(const std::string &text, const std::string &part) {
    return strcasestr(text.c_str(), part.c_str()) != nullptr;
}

bool holds(const Device &device, const std::string &part) {
    return holds(device.serial, part) || holds(device.name, part) ||
           holds(device.told("mac"), part) || holds(device.model(), part) ||
           std::ranges::any_of(device.tags, [&](const Json &tag) {
               return holds(tag.get_ref<const std::string &>(), part);
           });
}

/** By what a list is sorted: a number or a text, which lies in the device. */
struct Key {
    double number = 0;
    const char *text = "";
};

struct Order {
    const char *name;
    Key (*key)(const Device &);
};
constexpr Order orders[] = {
    {"serial", [](const Device &) { return Key{}; }},
    {"name",
     [](const Device &device) {
         return Key{0, device.name.c_str()};
     }},
    {"state",
     [](const Device &device) {
         return Key{0, fleet::name_of(device.presence.state)};
     }},
    {"state_since",
     [](const Device &device) { return Key{static_cast<double>(device.state_since)}; }},
    {"config_state",
     [](const Device &device) {
         return Key{0, device.config_state.c_str()};
     }},
    {"model",
     [](const Device &device) {
         return Key{0, device.model().c_str()};
     }},
    {"firmware",
     [](const Device &device) {
         return Key{0, device.firmware().c_str()};
     }},
    {"site",
     [](const Device &device) { return Key{static_cast<double>(device.site.value_or(0))}; }},
    {"last_seen", [](const Device &device) { return Key{static_cast<double>(device.last_seen)}; }},
    {"clients",
     [](const Device &device) {
         const auto clients = device.figures.find("clients");
         return Key{clients == device.figures.end() || !clients->is_number()
                        ? -1.0
                        : clients->get<double>()};
     }},
};

/** A device in the order of a list: equal ones stand by serial number. */
struct Place {
    Key key;
    std::string_view serial;
    const Device *device = nullptr;

    bool operator<(const Place &other) const {
        if (key.number != other.key.number) {
            return key.number < other.key.number;
        }
        const int order = strcasecmp(key.text, other.key.text);
        if (order != 0) {
            return order < 0;
        }
        return serial < other.serial;
    }
};

/** The filters of a list, each empty for all. */
struct Filter {
    std::string site, state, config_state, model, firmware, q;

    /** Looks only at what is filtered: a list looks at every device. */
    bool takes(const Device &device) const {
        return (site.empty() || site == (device.site ? std::to_string(*device.site) : "none")) &&
               (state.empty() || state == fleet::name_of(device.presence.state)) &&
               (config_state.empty() || config_state == device.config_state) &&
               (model.empty() || model == device.model()) &&
               (firmware.empty() || firmware == device.firmware()) &&
               (q.empty() || holds(device, q));
    }
};

/** Where a page ended, as a text for the next request: its members in hexadecimal digits. */
std::string cursor_of(const Place &place) {
    const std::string text = Json({place.key.number, place.key.text, place.serial})
                                 .dump(-1, ' ', true, Json::error_handler_t::replace);
    std::string hex;
    for (const unsigned char byte : text) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}

/** The members of a cursor; throws 400 for what is none. */
Json parsed_cursor(const std::string &cursor) {
    std::string text;
    for (size_t i = 0; i + 1 < cursor.size(); i += 2) {
        int byte = 0;
        std::from_chars(&cursor[i], &cursor[i] + 2, byte, 16);
        text += static_cast<char>(byte);
    }
    Json parsed = Json::parse(text, nullptr, false);
    if (!parsed.is_array() || parsed.size() != 3 || !parsed[0].is_number() ||
        !parsed[1].is_string() || !parsed[2].is_string()) {
        throw Problem{400, "this cursor is none of this list", "cursor"};
    }
    return parsed;
}

void expect_tags(const Json &tags) {
    const bool good = tags.size() <= 32 && std::ranges::all_of(tags, [](const Json &tag) {
                          return tag.is_string() && !tag.get_ref<const std::string &>().empty() &&
                                 tag.get_ref<const std::string &>().size() <= 64;
                      });
    if (!good) {
        throw Problem{400, "tags must be at most 32 texts of 1 to 64 bytes", "/tags"};
    }
}

http::Response whole(const Device &device) {
    http::Response response = json(fleet::shown(device, true));
    response.headers.push_back(etag(device.version));
    return response;
}

}  // namespace

awaitable<http::Response> list_devices(Context &context) {
    const Filter filter{context.query("site"),         context.query("state"),
                        context.query("config_state"), context.query("model"),
                        context.query("firmware"),     context.query("q")};
    std::string by = context.query("sort");
    const bool falls = by.starts_with('-');
    by = by.empty() ? "serial" : by.substr(falls ? 1 : 0);
    const auto order = std::ranges::find(orders, by, &Order::name);
    if (order == std::end(orders)) {
        throw Problem{400, "a list is not sorted by this", "sort"};
    }
    const auto limit = static_cast<size_t>(context.number("limit", 100, 1, 1000));
    const std::string cursor = context.query("cursor");
    const Json ended = cursor.empty() ? Json({0, "", ""}) : parsed_cursor(cursor);
    const Place behind{{ended[0], ended[1].get_ref<const std::string &>().c_str()},
                       ended[2].get_ref<const std::string &>()};
    const auto before = [falls](const Place &one, const Place &other) {
        return falls ? other < one : one < other;
    };
    std::vector<Place> places;
    size_t total = 0;
    for (const auto &[serial, device] : context.service.fleet.devices()) {
        if (filter.takes(device)) {
            ++total;
            const Place place{order->key(device), serial, &device};
            if (cursor.empty() || before(behind, place)) {
                places.push_back(place);
            }
        }
    }
    const size_t count = std::min(limit, places.size());
    std::ranges::partial_sort(places, places.begin() + static_cast<std::ptrdiff_t>(count), before);
    Json items = Json::array();
    for (size_t i = 0; i < count; ++i) {
        items.push_back(fleet::shown(*places[i].device, false));
    }
    const bool more = places.size() > limit;
    co_return json({{"items", items},
                    {"total", total},
                    {"next_cursor", more ? Json(cursor_of(places[count - 1])) : Json()}});
}

awaitable<http::Response> get_device(Context &context) {
    co_return whole(device_of(context));
}

awaitable<http::Response> patch_device(Context &context) {
    const Device &device = device_of(context);
    context.expect(
        {{"name", Type::string, false, 64}, {"tags", Type::array}, {"site", Type::discarded}});
    expect_version(context, device.version);
    const Json &body = context.body;
    if (body.contains("tags")) {
        expect_tags(body["tags"]);
    }
    const Json site = body.value("site", Json());
    if (!site.is_null() &&
        (!site.is_number_integer() || context.service.converger.site(site) == nullptr)) {
        throw Problem{400, "there is no site of this id", "/site"};
    }
    context.service.fleet.edit(device.serial, [&](Device &changed) {
        changed.name = body.value("name", changed.name);
        changed.tags = body.value("tags", changed.tags);
        if (body.contains("site")) {
            changed.site = site.is_null() ? std::nullopt : std::optional(site.get<long long>());
        }
    });
    context.service.converger.consider(device.serial);
    context.audit_detail = body.dump();
    const http::Response response = whole(device);
    co_await settled(context.service);
    co_return response;
}

awaitable<http::Response> delete_device(Context &context) {
    const Device &device = device_of(context);
    if (device.is_online()) {
        throw Problem{409, "the device is online: it would be back at once"};
    }
    const std::string serial = device.serial;
    context.service.fleet.forget(serial);
    context.service.converger.forget(serial);
    context.service.clear_retained(serial);
    co_await settled(context.service);
    http::Response response;
    response.status = 204;
    co_return response;
}

}  // namespace api
