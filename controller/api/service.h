/**
 * What the handlers of the API work with.
 */
#ifndef CONTROLLER_API_SERVICE_H
#define CONTROLLER_API_SERVICE_H

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "controller/fleet/fleet.h"
#include "controller/fleet/orders.h"
#include "controller/http/message.h"
#include "controller/store/database.h"
#include "controller/store/fleet_tables.h"
#include "controller/store/vault.h"

namespace converge {
class Converger;
}

namespace api {

using Json = nlohmann::json;
using boost::asio::awaitable;

/** Each may do what those before may. */
enum class Role { anyone, viewer, operate, admin };

const char *name_of(Role role);

/** `anyone` for what is no role's name. */
Role role_of(const std::string &name);

/** Failed attempts to sign in, by user and by address: each further one has to wait. */
class Patience {
  public:
    /** Seconds until the next attempt may be made; 0: now. */
    double wait(const std::string &who, double now) const;
    void failed(const std::string &who, double now);
    void succeeded(const std::string &who) { failures_.erase(who); }

  private:
    struct Failures {
        int count = 0;
        double last = 0;
    };
    std::map<std::string, Failures> failures_;
};

struct Service {
    store::Database &database;
    const store::Vault &vault;
    fleet::Fleet &fleet;
    fleet::Orders &orders;
    converge::Converger &converger;
    std::function<void(const std::string &serial)> clear_retained; /**< at the brokers */
    std::function<size_t()> brokers_up;
    size_t brokers = 0;
    bool open = false;                                /**< everybody is admin */
    std::function<void(std::function<void()>)> aside; /**< runs what takes long elsewhere */
    Patience patience = {};
};

/** An answer that is no success: RFC 9457. Handlers throw it. */
struct Problem {
    int status;
    std::string detail;
    std::string field = {};     /**< JSON pointer into the body, or the name of a parameter */
    Json more = Json::object(); /**< further members */
    std::vector<std::pair<std::string, std::string>> headers = {};
};

http::Response response_of(const Problem &problem);

/** A request on its way through the API. */
struct Context {
    Service &service;
    http::Request request;
    std::map<std::string, std::string> params = {}; /**< of the path */
    Json body = nullptr;                            /**< parsed; null for none */
    std::string user = {};
    Role role = Role::anyone;
    std::string credential = {};   /**< hash of what the request came with; empty for none */
    std::string audit_detail = {}; /**< what stands in the audit besides the path */

    const std::string &param(const std::string &name) const { return params.at(name); }

    /** The number "{id}" of the path; 0 for what is none. */
    long long id() const;

    /** A text of the query; empty for none. */
    std::string query(const std::string &name) const;

    /** A whole number of the query between two bounds. */
    long long number(const std::string &name, long long otherwise, long long least,
                     long long most) const;

    /** The members of the body, each named in a list and of the right type; throws Problem
     *  for another one and for one that is required and missing. */
    struct Member {
        const char *name;
        Json::value_t type;
        bool required = false;
        size_t longest = 256; /**< bytes of a text */
    };
    void expect(std::initializer_list<Member> members) const;

    store::Page page() const;
};

http::Response json(const Json &value, int status = 200);

/** {"items", "next_cursor"} of rows with ids that came with `page`. */
http::Response rows_page(const Json &rows, const store::Page &page);

/** Runs a job of the database; throws what it throws. A job captures by reference: the
 *  coroutine waits for it, and gcc 12 copies what a co_await expression captures by value
 *  without its constructor. */
awaitable<Json> query(Service &service, std::function<Json(store::Sql &)> job);

/** Waits until the database has what was posted before: what is answered is kept. */
awaitable<void> settled(Service &service);

/** Runs what takes long on another thread. */
awaitable<Json> aside(Service &service, std::function<Json()> job);

/** The device of the path; throws 404. */
const fleet::Device &device_of(const Context &context);

/** Throws 412 when the request's If-Match names another version. */
void expect_version(const Context &context, long long version);
std::pair<std::string, std::string> etag(long long version);

/** Answers a request, whatever it is. */
awaitable<http::Response> respond(Service &service, http::Request request);

}  // namespace api

#endif
