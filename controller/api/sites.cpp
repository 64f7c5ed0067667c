// Sites, their configurations, and overrides of devices.

#include <algorithm>

#include "controller/api/routes.h"
#include "controller/converge/converger.h"
#include "controller/converge/preview.h"
#include "controller/store/site_tables.h"

namespace api {
namespace {

using converge::Site;
using Document = desired::Json; /**< whose members have an order */

constexpr long long most_versions = 1'000'000'000;

/** Throws 400 with all that is wrong, the first of it as its field. */
void expect_no(const std::vector<desired::Problem> &problems) {
    if (problems.empty()) {
        return;
    }
    Json all = Json::array();
    for (const desired::Problem &problem : problems) {
        all.push_back({{"field", problem.pointer}, {"detail", problem.detail}});
    }
    const desired::Problem &first = problems.front();
    throw Problem{400,
                  first.pointer.substr(first.pointer.empty() ? 0 : 1) + " " + first.detail,
                  first.pointer,
                  {{"problems", all}}};
}

/** The body as it was written: the order of SSIDs and members counts. */
Document document_of(const Context &context) {
    return Document::parse(context.request.body.empty() ? "null" : context.request.body);
}

http::Response document(const Document &value, int status = 200) {
    http::Response response;
    response.status = status;
    response.headers = {{"content-type", "application/json"}};
    response.body = value.dump();
    return response;
}

const Site &site_of(const Context &context) {
    const Site *site = context.service.converger.site(context.id());
    if (site == nullptr) {
        throw Problem{404, "there is no site of this id"};
    }
    return *site;
}

/** A site with how many devices it has in which state. */
Document shown(const Context &context, const Site &site) {
    Document shown = site.document;
    Document states = Document::object();
    int count = 0;
    for (const auto &[serial, device] : context.service.fleet.devices()) {
        if (device.site == site.id) {
            ++count;
            states[device.config_state] = states.value(device.config_state, 0) + 1;
        }
    }
    shown["configuration_version"] = site.configuration_version;
    shown["devices"] = count;
    shown["config_states"] = states;
    return shown;
}

/** A version of a site's configuration; throws 404. */
awaitable<Document> configuration_of(Context &context, const Site &site, long long version) {
    if (version == site.configuration_version && version != 0) {
        co_return site.configuration;
    }
    const Json row = co_await query(context.service, [&](store::Sql &sql) {
        return store::configuration(sql, site.id, version);
    });
    if (row.is_null()) {
        throw Problem{404, version == 0 ? "the site has no configuration yet"
                                        : "the configuration has no such version"};
    }
    co_return Document::parse(context.service.vault.unseal(row["sealed"]));
}

/** Makes a configuration the newest of its site; its version. */
awaitable<long long> become(Context &context, const Site &site, const Document &configuration) {
    expect_version(context, site.configuration_version);
    const store::Version version{site.id, site.configuration_version + 1, fleet::wall_now(),
                                 context.user};
    const std::string sealed = context.service.vault.seal(configuration.dump());
    const Json kept = co_await query(context.service, [&](store::Sql &sql) {
        return Json(store::save_configuration(sql, version, sealed));
    });
    if (!kept.get<bool>()) {
        throw Problem{412, "somebody changed it meanwhile"};
    }
    context.service.converger.set_configuration(site.id, configuration, version.number);
    context.audit_detail = "version " + std::to_string(version.number);
    co_return version.number;
}

http::Response version_response(long long version) {
    http::Response response = json({{"version", version}});
    response.headers.push_back(etag(version));
    return response;
}

Document checked_site(const Context &context, long long id) {
    desired::Checked checked = desired::check_site(document_of(context));
    expect_no(checked.problems);
    checked.document["id"] = id;
    return checked.document;
}

}  // namespace

awaitable<http::Response> list_sites(Context &context) {
    Document items = Document::array();
    for (const auto &[id, site] : context.service.converger.sites()) {
        items.push_back(shown(context, site));
    }
    co_return document({{"items", items}});
}

awaitable<http::Response> make_site(Context &context) {
    Site site;
    site.document = checked_site(context, 0);
    const std::string name = site.document["name"];
    co_await query(context.service, [&](store::Sql &sql) {
        site.id = store::make_site(sql, name, site.document.dump());
        site.document["id"] = site.id;
        if (site.id != 0) {
            store::change_site(sql, site.id, name, site.document.dump(), 1);
        }
        return Json();
    });
    if (site.id == 0) {
        throw Problem{409, "there is a site of this name", "/name"};
    }
    context.audit_detail = name;
    context.service.converger.add_site(site);
    http::Response response = document(shown(context, site), 201);
    response.headers.emplace_back("location", "/api/v1/sites/" + std::to_string(site.id));
    co_return response;
}

awaitable<http::Response> get_site(Context &context) {
    const Site &site = site_of(context);
    http::Response response = document(shown(context, site));
    response.headers.push_back(etag(site.version));
    co_return response;
}

awaitable<http::Response> put_site(Context &context) {
    Site site = site_of(context);
    expect_version(context, site.version);
    site.document = checked_site(context, site.id);
    ++site.version;
    const Json changed = co_await query(context.service, [&](store::Sql &sql) {
        return Json(store::change_site(sql, site.id, site.document["name"], site.document.dump(),
                                       site.version));
    });
    if (!changed.get<bool>()) {
        throw Problem{409, "another site has this name, or this one was changed meanwhile",
                      "/name"};
    }
    context.service.converger.set_document(site.id, site.document, site.version);
    context.audit_detail = site.document.dump();
    http::Response response = document(shown(context, site));
    response.headers.push_back(etag(site.version));
    co_return response;
}

awaitable<http::Response> delete_site(Context &context) {
    const long long id = site_of(context).id;
    for (const auto &[serial, device] : context.service.fleet.devices()) {
        if (device.site == id) {
            throw Problem{409, "the site still has devices"};
        }
    }
    co_await query(context.service, [&](store::Sql &sql) {
        store::forget_site(sql, id);
        return Json();
    });
    context.service.converger.drop_site(id);
    http::Response response;
    response.status = 204;
    co_return response;
}

awaitable<http::Response> get_configuration(Context &context) {
    const Site site = site_of(context);
    const long long version =
        context.number("version", site.configuration_version, 0, most_versions);
    const Document found = co_await configuration_of(context, site, version);
    http::Response response = document(desired::without_passphrases(found));
    response.headers.push_back(etag(version));
    co_return response;
}

awaitable<http::Response> put_configuration(Context &context) {
    const Site site = site_of(context);
    const desired::Checked checked =
        desired::check_configuration(document_of(context), site.configuration);
    expect_no(checked.problems);
    const long long version = co_await become(context, site, checked.document);
    co_return version_response(version);
}

awaitable<http::Response> list_configurations(Context &context) {
    const long long id = site_of(context).id;
    const Json rows = co_await query(
        context.service, [&](store::Sql &sql) { return store::configuration_versions(sql, id); });
    co_return json({{"items", rows}});
}

awaitable<http::Response> roll_back(Context &context) {
    const Site site = site_of(context);
    context.expect({{"version", Json::value_t::number_integer, true}});
    const Json &wanted = context.body["version"];
    if (wanted < 1 || wanted > most_versions) {
        throw Problem{400, "version must be one of the site's configuration", "/version"};
    }
    const Document found = co_await configuration_of(context, site, wanted.get<long long>());
    const long long version = co_await become(context, site, found);
    context.audit_detail += " as version " + wanted.dump();
    co_return version_response(version);
}

awaitable<http::Response> preview_configuration(Context &context) {
    const Site site = site_of(context);
    const long long version = context.number("version", 0, 1, most_versions);
    desired::Checked checked;
    if (version != 0) {
        checked.document = co_await configuration_of(context, site, version);
    } else {
        checked = desired::check_configuration(document_of(context), site.configuration);
    }
    expect_no(checked.problems);
    Document items = Document::array();
    for (const auto &[serial, device] : context.service.fleet.devices()) {
        if (device.site != site.id) {
            continue;
        }
        const Document own = context.service.converger.overrides(serial);
        const desired::Checked before = desired::merge(site.configuration, own);
        const desired::Checked after = desired::merge(checked.document, own);
        Document item = {{"serial", serial},
                         {"name", device.name},
                         {"state", fleet::name_of(device.presence.state)},
                         {"changes", converge::changes(before.document, after.document)}};
        if (!after.ok()) {
            item["problem"] = after.problems.front().pointer + " " + after.problems.front().detail;
        }
        items.push_back(item);
    }
    co_return document({{"items", items}});
}

awaitable<http::Response> get_overrides(Context &context) {
    const Document own = context.service.converger.overrides(device_of(context).serial);
    co_return document(own.is_null() ? Document::object() : desired::without_passphrases(own));
}

awaitable<http::Response> put_overrides(Context &context) {
    const fleet::Device &device = device_of(context);
    const std::string serial = device.serial;
    const desired::Checked checked =
        desired::check_overrides(document_of(context), context.service.converger.overrides(serial));
    expect_no(checked.problems);
    const Site *site = device.site ? context.service.converger.site(*device.site) : nullptr;
    if (site != nullptr && !site->configuration.is_null()) {
        expect_no(desired::merge(site->configuration, checked.document).problems);
    }
    const std::string sealed = context.service.vault.seal(checked.document.dump());
    co_await query(context.service, [&](store::Sql &sql) {
        store::save_overrides(sql, serial, sealed);
        return Json();
    });
    context.service.converger.set_overrides(serial, checked.document);
    co_return document(desired::without_passphrases(checked.document));
}

}  // namespace api
