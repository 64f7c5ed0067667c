#include "controller/api/service.h"

#include "controller/api/wait.h"

#include <algorithm>
#include <array>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <charconv>
#include <cmath>

namespace api {
namespace {

constexpr std::array role_names = {"anyone", "viewer", "operator", "admin"};

struct Status {
    int number;
    const char *title;
};
constexpr Status statuses[] = {
    {400, "Bad Request"},         {401, "Unauthorized"},           {403, "Forbidden"},
    {404, "Not Found"},           {405, "Method Not Allowed"},     {409, "Conflict"},
    {412, "Precondition Failed"}, {415, "Unsupported Media Type"}, {422, "Unprocessable Content"},
    {429, "Too Many Requests"},   {500, "Internal Server Error"},  {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

constexpr int free_attempts = 4;
constexpr double longest_wait_s = 300;

/** What a job on another thread left. */
struct Result {
    Json value;
    std::exception_ptr failure;

    Json take() {
        if (failure) {
            std::rethrow_exception(failure);
        }
        return std::move(value);
    }
};

}  // namespace

awaitable<void> wait_for(std::function<void(std::function<void()>)> start) {
    co_await boost::asio::async_initiate<const boost::asio::use_awaitable_t<> &, void()>(
        [&start](auto handler) {
            auto executor = boost::asio::get_associated_executor(handler);
            auto kept = std::make_shared<decltype(handler)>(std::move(handler));
            start(
                [executor, kept] { boost::asio::post(executor, [kept] { std::move (*kept)(); }); });
        },
        boost::asio::use_awaitable);
}

const char *name_of(Role role) {
    return role_names[static_cast<size_t>(role)];
}

Role role_of(const std::string &name) {
    const auto found = std::ranges::find(role_names, name);
    return found == role_names.end() ? Role::anyone : static_cast<Role>(found - role_names.begin());
}

double Patience::wait(const std::string &who, double now) const {
    const auto found = failures_.find(who);
    if (found == failures_.end() || found->second.count < free_attempts) {
        return 0;
    }
    const double pause = std::min(longest_wait_s, std::pow(2, found->second.count - free_attempts));
    return std::max(0.0, found->second.last + pause - now);
}

void Patience::failed(const std::string &who, double now) {
    std::erase_if(failures_,
                  [&](const auto &row) { return now > row.second.last + longest_wait_s; });
    failures_[who] = {failures_[who].count + 1, now};
}

http::Response json(const Json &value, int status) {
    http::Response response;
    response.status = status;
    response.headers = {{"content-type", "application/json"}};
    response.body = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return response;
}

http::Response response_of(const Problem &problem) {
    const auto status = std::ranges::find(statuses, problem.status, &Status::number);
    Json body = problem.more;
    body["type"] = "about:blank";
    body["title"] = status == std::end(statuses) ? "" : status->title;
    body["status"] = problem.status;
    body["detail"] = problem.detail;
    if (!problem.field.empty()) {
        body["field"] = problem.field;
    }
    http::Response response = json(body, problem.status);
    response.headers = {{"content-type", "application/problem+json"}};
    response.headers.insert(response.headers.end(), problem.headers.begin(), problem.headers.end());
    return response;
}

long long Context::id() const {
    const std::string &text = param("id");
    long long id = 0;
    const char *end = text.data() + text.size();
    return std::from_chars(text.data(), end, id).ptr == end ? id : 0;
}

std::string Context::query(const std::string &name) const {
    const auto found = request.query.find(name);
    return found == request.query.end() ? std::string() : found->second;
}

long long Context::number(const std::string &name, long long otherwise, long long least,
                          long long most) const {
    const std::string text = query(name);
    if (text.empty()) {
        return otherwise;
    }
    long long value = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end || value < least || value > most) {
        throw Problem{400,
                      name + " must be a whole number from " + std::to_string(least) + " to " +
                          std::to_string(most),
                      name};
    }
    return value;
}

void Context::expect(std::initializer_list<Member> members) const {
    if (!body.is_object()) {
        throw Problem{400, "the body must be a JSON object"};
    }
    for (const auto &[name, value] : body.items()) {
        const auto known = std::ranges::find_if(
            members, [&](const Member &member) { return name == member.name; });
        if (known == members.end()) {
            throw Problem{400, "there is no member " + name, "/" + name};
        }
        const bool right =
            value.type() == known->type || known->type == Json::value_t::discarded ||
            (known->type == Json::value_t::number_integer && value.is_number_integer());
        if (!right) {
            throw Problem{400, name + " is of the wrong type", "/" + name};
        }
        if (value.is_string() && value.get_ref<const std::string &>().size() > known->longest) {
            throw Problem{
                400, name + " may be " + std::to_string(known->longest) + " bytes long at most",
                "/" + name};
        }
    }
    for (const Member &member : members) {
        if (member.required && !body.contains(member.name)) {
            throw Problem{400, std::string(member.name) + " is required",
                          std::string("/") + member.name};
        }
    }
}

store::Page Context::page() const {
    store::Page page;
    page.limit = static_cast<int>(number("limit", 100, 1, 1000));
    page.below = number("cursor", 0, 1, 4'000'000'000'000'000'000);
    return page;
}

http::Response rows_page(const Json &rows, const store::Page &page) {
    const bool more = rows.size() == static_cast<size_t>(page.limit);
    return json({{"items", rows},
                 {"next_cursor",
                  more ? Json(std::to_string(rows.back()["id"].get<long long>())) : Json()}});
}

awaitable<Json> query(Service &service, std::function<Json(store::Sql &)> job) {
    const auto result = std::make_shared<Result>();
    co_await wait_for([&](std::function<void()> done) {
        service.database.post([result, job](store::Sql &sql) { result->value = job(sql); },
                              [result, done](const std::exception_ptr &failure) {
                                  result->failure = failure;
                                  done();
                              });
    });
    co_return result->take();
}

awaitable<void> settled(Service &service) {
    co_await query(service, [](store::Sql &) { return Json(); });
}

awaitable<Json> aside(Service &service, std::function<Json()> job) {
    const auto result = std::make_shared<Result>();
    co_await wait_for([&](std::function<void()> done) {
        service.aside([result, job, done] {
            try {
                result->value = job();
            } catch (...) {
                result->failure = std::current_exception();
            }
            done();
        });
    });
    co_return result->take();
}

const fleet::Device &device_of(const Context &context) {
    const fleet::Device *device = context.service.fleet.find(context.param("serial"));
    if (device == nullptr) {
        throw Problem{404, "there is no device of this serial number"};
    }
    return *device;
}

std::pair<std::string, std::string> etag(long long version) {
    return {"etag", "\"" + std::to_string(version) + "\""};
}

void expect_version(const Context &context, long long version) {
    const std::string wanted = context.request.header("if-match");
    if (!wanted.empty() && wanted != "*" && wanted != etag(version).second) {
        throw Problem{412, "somebody changed it meanwhile", "", Json::object(), {etag(version)}};
    }
}

}  // namespace api
