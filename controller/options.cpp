#include "controller/options.h"

#include <sys/stat.h>

#include <boost/asio/ip/address.hpp>

#include "tools/cli.h"

namespace controller {

void add_options(CLI::App &app, Options &options) {
    const auto add = [&](const char *name, auto &value, const char *text, const char *variable) {
        return app.add_option(name, value, text)->envname(variable);
    };
    add("--data", options.data, "Folder for the key, and for SQLite's database", "NORVEX_DATA")
        ->type_name("DIR");
    add("--database", options.database, "postgresql://... instead of SQLite", "NORVEX_DATABASE")
        ->type_name("URL");
    add("--broker", options.brokers, "mqtt://HOST[:PORT] or mqtts://..., several with commas",
        "NORVEX_BROKER")
        ->type_name("LIST");
    add("--listen", options.listen, "Address and port of the page and the API", "NORVEX_LISTEN")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    CLI::Option *certificate = add("--cert", options.certificate,
                                   "Certificate of the page and the API (PEM)", "NORVEX_CERT")
                                   ->type_name("FILE");
    certificate->needs(add("--key", options.key, "Key of that certificate (PEM)", "NORVEX_KEY")
                           ->type_name("FILE")
                           ->needs(certificate));
    app.add_flag("--open", options.open, "Everybody is admin; on a loopback address only")
        ->envname("NORVEX_OPEN");
    add("--secret-key", options.secret_key,
        "64 hexadecimal digits that seal secrets; else DIR/secret.key", "NORVEX_SECRET_KEY")
        ->type_name("KEY");
    add("--name", options.access.name,
        "Name of this instance; with TLS to the brokers that of its certificate", "NORVEX_NAME")
        ->capture_default_str();
    add("--broker-user", options.access.user, "User at the brokers", "NORVEX_BROKER_USER");
    add("--broker-password", options.access.password, "Better given by the environment",
        "NORVEX_BROKER_PASSWORD");
    add("--broker-ca", options.access.cafile, "Root certificate of mqtts:// brokers (PEM)",
        "NORVEX_BROKER_CA")
        ->type_name("FILE");
    CLI::Option *own = add("--broker-cert", options.access.certfile,
                           "This instance's certificate at the brokers (PEM)", "NORVEX_BROKER_CERT")
                           ->type_name("FILE");
    own->needs(add("--broker-key", options.access.keyfile, "Key of that certificate (PEM)",
                   "NORVEX_BROKER_KEY")
                   ->type_name("FILE")
                   ->needs(own));
    for (size_t i = 0; i < fleet::reports.size(); ++i) {
        const std::string name(fleet::reports[i].name);
        std::string variable = "NORVEX_POLL_" + name;
        std::ranges::transform(variable, variable.begin(),
                               [](unsigned char c) { return toupper(c); });
        options.schedule[i] = fleet::reports[i].every_s;
        app.add_option("--poll-" + name, options.schedule[i],
                       "Seconds between two " + name + " reports; 0: only on order")
            ->envname(variable)
            ->check(tools::number(0, 31 * 86400))
            ->type_name("SECONDS")
            ->capture_default_str();
    }
}

http::Listening listening_of(const Options &options) {
    const size_t colon = options.listen.rfind(':');
    std::string host = options.listen.substr(0, colon);
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(host, error);
    long port = 0;
    if (error || colon == options.listen.npos ||
        !nxapi::parse_number(options.listen.substr(colon + 1), 0, 65535, port)) {
        throw tools::Misuse("\"" + options.listen + "\" is no ADDRESS:PORT");
    }
    if (options.open && !address.is_loopback()) {
        throw tools::Misuse("--open is for a loopback address only");
    }
    return {host, static_cast<unsigned short>(port), options.certificate, options.key};
}

std::vector<nxapi::BrokerAddress> brokers_of(const Options &options) {
    std::vector<nxapi::BrokerAddress> brokers;
    if (const char *fault = nxapi::broker_list_fault(options.brokers, brokers)) {
        throw tools::Misuse(std::string("--broker ") + fault);
    }
    return brokers;
}

std::string database_of(const Options &options) {
    if (options.data.empty()) {
        throw tools::Misuse("--data DIR is required");
    }
    errno = 0;
    if (mkdir(options.data.c_str(), 0700) != 0 && errno != EEXIST) {
        throw tools::Failure(tools::cannot("make", options.data.string()));
    }
    return options.database.empty() ? (options.data / "controller.db").string() : options.database;
}

}  // namespace controller
