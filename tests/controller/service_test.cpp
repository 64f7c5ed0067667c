/**
 * The service from its first start on: users, roles, its reference, bad input; on SQLite
 * and on PostgreSQL.
 */
#include <regex>
#include <set>

#include "controller/api/routes.h"
#include "tests/controller/running.h"

namespace {

using test::Answer;
using test::Json;
using test::output_of;
using test::Running;
using ::testing::HasSubstr;
using ::testing::Not;

class Service : public ::testing::TestWithParam<const char *> {
  protected:
    static std::string database() {
        return GetParam() == std::string("sqlite") ? ""
                                                   : test::Postgres::instance().make_database();
    }

    static std::string password_in(const std::string &log) {
        std::smatch found;
        std::regex_search(log, found, std::regex("with the password ([0-9a-f]+)"));
        return found.str(1);
    }

    /** The value of the session's cookie. */
    static std::string cookie(const Answer &answer) {
        std::smatch found;
        std::regex_search(answer.head, found, std::regex("norvex_session=([0-9a-f]*)"));
        return found.str(1);
    }

    static std::string token_of(const Running &service, const std::string &role) {
        const Answer made =
            service.http("POST", "/api/v1/tokens", {{"name", role}, {"role", role}});
        EXPECT_EQ(made.status, 201) << made.text;
        return made.body.value("token", "");
    }

    /** Signs the first user in; its requests have a token from then on. */
    static void become_admin(Running &service) {
        const Answer in =
            service.http("POST", "/api/v1/session",
                         {{"user", "admin"}, {"password", password_in(service.log())}});
        ASSERT_EQ(in.status, 200) << in.text;
        service.token = cookie(in);
        service.token = token_of(service, "admin");
    }

    test::Broker broker;
};

INSTANTIATE_TEST_SUITE_P(On, Service, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &row) { return std::string(row.param); });

TEST_P(Service, LetsInWhoMay) {
    Running service({"--broker", broker.url()}, database());
    const std::string password = password_in(service.log());
    ASSERT_EQ(password.size(), 20U) << service.log();

    EXPECT_EQ(service.get("/api/v1/devices").status, 401);
    EXPECT_EQ(service.get("/healthz").status, 200);
    const Json wrong = {{"user", "admin"}, {"password", "wrong"}};
    EXPECT_EQ(service.http("POST", "/api/v1/session", wrong).status, 403);
    const Answer in =
        service.http("POST", "/api/v1/session", {{"user", "admin"}, {"password", password}});
    EXPECT_EQ(in.body, Json({{"user", "admin"}, {"role", "admin"}}));
    EXPECT_THAT(in.head, HasSubstr("HttpOnly; SameSite=Strict"));
    const std::string session = "cookie: norvex_session=" + cookie(in);
    EXPECT_EQ(service.http("GET", "/api/v1/me", nullptr, {session}).status, 200);
    EXPECT_EQ(
        service
            .http("POST", "/api/v1/sites", {{"name", "x"}}, {session, "sec-fetch-site: cross-site"})
            .status,
        403)
        << "another site's page acts with the cookie";

    int status = -1;
    EXPECT_EQ(output_of(service.words({"user", "add", "anna", "--role", "viewer"}), &status,
                        "anna's password\n"),
              "");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(output_of(service.words({"user", "list"})),
                HasSubstr("anna                     viewer\n"));
    EXPECT_EQ(
        service.http("POST", "/api/v1/session", {{"user", "anna"}, {"password", "anna's password"}})
            .body["role"],
        "viewer");

    service.stop(SIGKILL);
    service.start();
    EXPECT_EQ(service.http("GET", "/api/v1/me", nullptr, {session}).status, 200);
    EXPECT_EQ(password_in(service.log()), password) << "it was told again";
    EXPECT_EQ(service.http("DELETE", "/api/v1/session", nullptr, {session}).status, 204);
    EXPECT_EQ(service.http("GET", "/api/v1/me", nullptr, {session}).status, 401);

    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(service.http("POST", "/api/v1/session", wrong).status, 403);
    }
    const Answer slowed = service.http("POST", "/api/v1/session", wrong);
    EXPECT_EQ(slowed.status, 429);
    EXPECT_THAT(slowed.head, HasSubstr("retry-after: "));
    EXPECT_EQ(WEXITSTATUS(service.stop()), 0) << "it does not end cleanly";
}

TEST_P(Service, RefusesEachRouteToWhoMayNot) {
    Running service({"--broker", broker.url()}, database());
    become_admin(service);
    std::map<api::Role, std::string> tokens{{api::Role::anyone, ""}};
    for (const api::Role role : {api::Role::viewer, api::Role::operate}) {
        tokens[role] = token_of(service, api::name_of(role));
    }
    const std::string admin = service.token;
    for (const api::Route &route : api::routes()) {
        const std::string path = std::regex_replace(route.path, std::regex("\\{[a-z]+\\}"), "1");
        for (const auto &[role, token] : tokens) {
            service.token = token;
            if (role < route.role) {
                EXPECT_EQ(service.http(route.method, path, Json::object()).status,
                          role == api::Role::anyone ? 401 : 403)
                    << route.method << " " << path << " as " << api::name_of(role);
            }
        }
        service.token = admin;
        if (std::string(route.method) == "GET" && path != "/api/v1/events") {
            const Answer answer = service.get(path);
            EXPECT_TRUE(answer.status == 200 || answer.status == 404 || answer.status == 400)
                << path << answer.text;
        }
    }
    const Json audit = service.get("/api/v1/audit").body["items"];
    EXPECT_EQ(audit[0]["status"], 403);
    EXPECT_EQ(audit[0]["user_name"], "admin") << "a token acts for the one who made it";
}

TEST_P(Service, NamesWhatIsWrong) {
    Running service({"--broker", broker.url(), "--open"}, database());
    const struct {
        const char *method, *path;
        Json body;
        int status;
        const char *field;
    } rows[] = {
        {"GET", "/api/v1/nothing", nullptr, 404, ""},
        {"GET", "/api/v1/devices/", nullptr, 404, ""},
        {"GET", "/api/v1/devices/%00", nullptr, 400, ""},
        {"PUT", "/api/v1/devices", nullptr, 405, ""},
        {"GET", "/api/v1/devices?limit=0", nullptr, 400, "limit"},
        {"GET", "/api/v1/devices?limit=1x", nullptr, 400, "limit"},
        {"GET", "/api/v1/devices?sort=mood", nullptr, 400, "sort"},
        {"GET", "/api/v1/devices?cursor=zz", nullptr, 400, "cursor"},
        {"GET", "/api/v1/devices/NONE", nullptr, 404, ""},
        {"GET", "/api/v1/clients?q=a", nullptr, 400, "q"},
        {"GET", "/api/v1/alarms?cursor=-1", nullptr, 400, "cursor"},
        {"POST", "/api/v1/alarms/999999999999999999999/acknowledge", nullptr, 404, ""},
        {"POST", "/api/v1/sites", "{", 400, ""},
        {"POST", "/api/v1/sites", "[", 400, ""},
        {"POST", "/api/v1/sites", std::string(200, '['), 400, ""},
        {"POST",
         "/api/v1/sites",
         {{"name", "x"}, {"project_id", -1}, {"cloud_id", "c"}},
         400,
         "/project_id"},
        {"GET", "/api/v1/sites/99999999999999999999", nullptr, 404, ""},
        {"POST",
         "/api/v1/users",
         {{"name", "a/b"}, {"role", "viewer"}, {"password", "12345678"}},
         400,
         "/name"},
        {"POST",
         "/api/v1/users",
         {{"name", "ab"}, {"role", "king"}, {"password", "12345678"}},
         400,
         "/role"},
        {"POST",
         "/api/v1/users",
         {{"name", "ab"}, {"role", "viewer"}, {"password", "1"}},
         400,
         "/password"},
        {"POST",
         "/api/v1/users",
         {{"name", "ab"}, {"role", 3}, {"password", "12345678"}},
         400,
         "/role"},
        {"POST",
         "/api/v1/users",
         {{"name", "ab"}, {"role", "viewer"}, {"pass", "1"}},
         400,
         "/pass"},
    };
    for (const auto &row : rows) {
        const Answer answer = service.http(row.method, row.path, row.body);
        EXPECT_EQ(answer.status, row.status) << row.path << answer.text;
        ASSERT_TRUE(answer.body.is_object()) << row.path << answer.text;
        EXPECT_EQ(answer.body.value("field", ""), row.field) << row.path << answer.text;
        EXPECT_THAT(answer.head, HasSubstr("application/problem+json")) << row.path;
    }
    EXPECT_EQ(service.http("POST", "/api/v1/sites", Json(std::string(3 << 20, ' '))).status, 413);
    EXPECT_EQ(service.http("GET", "/metrics", nullptr, {"host: example.org"}).status, 403)
        << "a name of elsewhere that leads here";
    EXPECT_THAT(service.log(), Not(HasSubstr("database:")));
}

TEST(ServiceReference, IsWhatIsServed) {
    const std::string text = test::text_of_file(NORVEX_SOURCE_DIR "/controller/api.yaml");
    std::set<std::string> written, served;
    std::string path, method;
    std::istringstream lines(text.substr(0, text.find("\ncomponents:")));
    for (std::string line; std::getline(lines, line);) {
        std::smatch found;
        if (std::regex_match(line, found, std::regex("  (/.*):"))) {
            path = found[1];
        } else if (std::regex_match(line, found, std::regex("    (get|put|post|patch|delete):"))) {
            method = found[1];
        } else if (std::regex_match(line, found, std::regex("      x-role: (.*)"))) {
            written.insert(method + " " + path + " " + found[1].str());
        }
    }
    for (const api::Route &route : api::routes()) {
        std::string verb = route.method;
        std::ranges::transform(verb, verb.begin(), tolower);
        served.insert(verb + " " + route.path + " " + api::name_of(route.role));
    }
    EXPECT_EQ(written, served);
}

TEST(ServiceStart, SaysWhyItDoesNot) {
    const test::TempFolder folder;
    const std::string data = folder.path() / "data";
    const struct {
        std::vector<std::string> options;
        const char *says;
    } rows[] = {
        {{"--broker", "mqtt://127.0.0.1"}, "--data DIR is required"},
        {{"--data", data}, "--broker"},
        {{"--data", data, "--broker", "http://x"}, "--broker"},
        {{"--data", data, "--broker", "mqtt://x", "--listen", "here"}, "no ADDRESS:PORT"},
        {{"--data", data, "--broker", "mqtt://x", "--listen", "0.0.0.0:0", "--open"},
         "loopback address only"},
        {{"--data", data, "--broker", "mqtt://x", "--cert", "c"}, "--key"},
        {{"--data", data, "--broker", "mqtt://x", "--secret-key", "abc"}, "hexadecimal"},
        {{"--data", data, "--broker", "mqtt://x", "--database", "postgresql:///no?host=/none"},
         "No such file"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> words{NORVEX_BIN_DIR "/norvex-controller"};
        words.insert(words.end(), row.options.begin(), row.options.end());
        int status = 0;
        EXPECT_THAT(output_of(words, &status), HasSubstr(row.says));
        EXPECT_NE(status, 0) << row.says;
    }
}

}  // namespace
