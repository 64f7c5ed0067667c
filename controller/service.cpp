#include "controller/service.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cstdio>
#include <cstdlib>

#include "controller/api/service.h"
#include "controller/converge/converger.h"
#include "controller/store/fleet_tables.h"
#include "controller/store/people_tables.h"

namespace controller {
namespace {

namespace asio = boost::asio;

/** Tells systemd, if it started the service with Type=notify. */
void notify(const char *state) {
    const char *path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{AF_UNIX, {}};
    const std::string name = path == nullptr ? "" : path;
    if (name.empty() || name.size() >= sizeof address.sun_path) {
        return;
    }
    name.copy(address.sun_path, name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (name.front() == '@') {
        address.sun_path[0] = '\0';
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sendto(fd, state, std::string_view(state).size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&address), length);
    close(fd);
}

/** The first start makes the user "admin" and prints the password, once. */
void make_admin(store::Database &database) {
    const std::string password = store::random_text(10);
    bool made = false;
    database.run([&](store::Sql &sql) {
        made = store::users(sql).empty();
        if (made) {
            store::save_user(sql, "admin", "admin", store::hash_password(password));
        }
    });
    if (made) {
        printf("The first user is \"admin\" with the password %s\n", password.c_str());
        fflush(stdout);
    }
}

/** Brings what the brokers' threads tell to the service's. */
struct Bridge : mqtt::Events {
    explicit Bridge(asio::io_context &io) : context(io) {}

    void on_message(mqtt::Message message) override {
        asio::post(context, [this, message = std::move(message)] { fleet->on_message(message); });
    }

    void on_link(size_t broker, bool up, std::string why) override {
        fprintf(stderr, up ? "broker %zu: connected\n" : "broker %zu: %s\n", broker + 1,
                why.c_str());
        asio::post(context, [this, broker, up] {
            links.resize(std::max(links.size(), broker + 1));
            links[broker] = up;
            fleet->on_link(broker, up);
        });
    }

    void on_acknowledged(size_t broker, int identifier, int reason) override {
        asio::post(context, [this, broker, identifier, reason] {
            fleet->on_acknowledged(broker, identifier, reason);
        });
    }

    asio::io_context &context;
    fleet::Fleet *fleet = nullptr;
    std::vector<bool> links;
};

/** Calls something again and again, at this distance. */
void every(asio::steady_timer &timer, std::chrono::milliseconds distance,
           std::function<void()> act) {
    timer.expires_after(distance);
    timer.async_wait([&timer, distance, act](const boost::system::error_code &error) {
        if (!error) {
            act();
            every(timer, distance, act);
        }
    });
}

class Whole {
  public:
    explicit Whole(const Options &options)
        : database_(database_of(options)),
          vault_(options.secret_key, options.data / "secret.key"),
          bridge_(io_),
          fleet_(database_, feed_, sender(), poster(), options.schedule),
          orders_(database_, vault_, fleet_, poster()),
          converger_(database_, vault_, fleet_, poster()),
          service_{
              .database = database_,
              .vault = vault_,
              .fleet = fleet_,
              .orders = orders_,
              .converger = converger_,
              .clear_retained = [this](const std::string &serial) { clear(serial); },
              .brokers_up = [this] { return std::ranges::count(bridge_.links, true); },
              .brokers = 0,
              .open = options.open,
              .aside = [this](std::function<void()> job) { asio::post(pool_, std::move(job)); }},
          server_(io_, listening_of(options), [this](http::Request request) {
              return api::respond(service_, std::move(request));
          }) {
        make_admin(database_);
        bridge_.fleet = &fleet_;
        wire();
        size_t place = 0;
        for (nxapi::BrokerAddress &broker : brokers_of(options)) {
            connections_.push_back(
                std::make_unique<mqtt::Connection>(place++, broker, options.access, bridge_));
        }
        service_.brokers = connections_.size();
        printf("Listening on %s://%s:%d/\n", options.certificate.empty() ? "http" : "https",
               listening_of(options).host.c_str(), server_.port());
        fflush(stdout);
    }

    void run() {
        signals_.async_wait([this](const boost::system::error_code &, int) { stop(); });
        asio::steady_timer beat(io_), seen(io_), hour(io_);
        every(beat, std::chrono::milliseconds(100), [this] {
            fleet_.tick();
            converger_.tick();
        });
        every(seen, std::chrono::seconds(30), [this] { fleet_.keep_seen(); });
        every(hour, std::chrono::hours(1), [this] { tidy(); });
        tidy();
        notify("READY=1");
        io_.run();
        fleet_.keep_seen();
    }

  private:
    fleet::Fleet::Send sender() {
        return [this](size_t broker, const mqtt::Order &order, int &identifier) {
            return broker < connections_.size() && connections_[broker]->send(order, identifier);
        };
    }

    fleet::Fleet::Post poster() {
        return [this](std::function<void()> call) { asio::post(io_, std::move(call)); };
    }

    void wire() {
        fleet_.on_change = [this](const std::string &serial, const std::string &what,
                                  const std::string &text) {
            converger_.heard(serial, what, text);
            if (what == "online") {
                orders_.device_came(serial);
            }
        };
        orders_.on_commanded = [this](const fleet::Command &command) {
            converger_.commanded(command.serial, command.name, command.request);
        };
    }

    void clear(const std::string &serial) {
        for (const auto &connection : connections_) {
            connection->clear_retained(serial);
        }
    }

    void tidy() {
        database_.post([](store::Sql &sql) { store::tidy(sql, fleet::wall_now(), {}); });
    }

    void stop() {
        notify("STOPPING=1");
        server_.stop();
        asio::post(io_, [this] { io_.stop(); });
    }

    fleet::Feed feed_;  // streams that end with the context leave it
    asio::io_context io_{1};
    asio::signal_set signals_{io_, SIGTERM, SIGINT};
    asio::thread_pool pool_{1};
    store::Database database_;
    store::Vault vault_;
    Bridge bridge_;
    std::vector<std::unique_ptr<mqtt::Connection>> connections_;
    fleet::Fleet fleet_;
    fleet::Orders orders_;
    converge::Converger converger_;
    api::Service service_;
    http::Server server_;
};

}  // namespace

void serve(const Options &options) {
    brokers_of(options);
    listening_of(options);
    Whole(options).run();
}

}  // namespace controller
