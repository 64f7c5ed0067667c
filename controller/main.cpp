/**
 * norvex-controller: the service that a fleet's operator runs.
 */
#include <sys/stat.h>
#include <unistd.h>

#include <iostream>

#include "controller/service.h"
#include "controller/store/people_tables.h"
#include "controller/store/vault.h"
#include "tools/cli.h"

namespace {

using controller::Options;

constexpr size_t shortest_password = 8;

std::string read_password() {
    if (isatty(STDIN_FILENO) == 1) {
        fputs("Password: ", stderr);
    }
    std::string password;
    std::getline(std::cin, password);
    if (password.size() < shortest_password) {
        throw tools::Failure("a password takes at least 8 characters");
    }
    return password;
}

void save_user(const Options &options, const std::string &name, const std::string &role) {
    store::Database database(controller::database_of(options));
    store::Json known;
    database.run([&](store::Sql &sql) { known = store::user(sql, name); });
    if (known.is_null() == role.empty()) {
        throw tools::Failure(role.empty() ? "there is no user " + name
                                          : "there is a user " + name + " already");
    }
    const std::string hash = store::hash_password(read_password());
    database.run([&](store::Sql &sql) { store::save_user(sql, name, role, hash); });
}

void list_users(const Options &options) {
    store::Database database(controller::database_of(options));
    store::Json users;
    database.run([&](store::Sql &sql) { users = store::users(sql); });
    for (const store::Json &user : users) {
        printf("%-24s %s\n", user["name"].get<std::string>().c_str(),
               user["role"].get<std::string>().c_str());
    }
}

void add_user_command(CLI::App &app, const Options &options) {
    static std::string name, role = "viewer";
    CLI::App *user = app.add_subcommand("user", "Users of the service");
    user->require_subcommand(1);
    CLI::App *add =
        user->add_subcommand("add", "Makes a user; the password comes from standard input");
    add->add_option("NAME", name, "Its name")->required();
    add->add_option("--role", role, "viewer, operator or admin")
        ->check(CLI::IsMember({"viewer", "operator", "admin"}))
        ->capture_default_str();
    add->callback([&options] { save_user(options, name, role); });
    CLI::App *passwd =
        user->add_subcommand("passwd", "Gives a user another password; ends its sessions");
    passwd->add_option("NAME", name, "Its name")->required();
    passwd->callback([&options] { save_user(options, name, ""); });
    user->add_subcommand("list", "Lists users and roles")->callback([&options] {
        list_users(options);
    });
}

void add_backup_command(CLI::App &app, const Options &options) {
    static std::string file;
    CLI::App *backup =
        app.add_subcommand("backup", "Copies SQLite's database while the service runs");
    backup->description(
        "Copies SQLite's database while the service runs. Keep secret.key with it: without the key "
        "nobody reads the pass phrases in it.");
    backup->add_option("FILE", file, "A file that is not there yet")->required();
    backup->callback([&options] {
        if (!options.database.empty()) {
            throw tools::Failure("a PostgreSQL database is backed up with pg_dump");
        }
        store::Database database(controller::database_of(options));
        database.back_up(file);
    });
}

}  // namespace

int main(int argc, char **argv) {
    umask(077);  // database, key and backup are nobody else's
    CLI::App app("Hears, asks and configures a fleet of access points", "norvex-controller");
    app.footer(
        "Examples:\n"
        "  norvex-controller --data /var/lib/norvex --broker mqtt://127.0.0.1:1883\n"
        "  norvex-controller --data /var/lib/norvex user add anna --role operator\n"
        "  norvex-controller --data /var/lib/norvex backup /backup/controller.db");
    Options options;
    controller::add_options(app, options);
    add_user_command(app, options);
    add_backup_command(app, options);
    app.callback([&] {
        if (app.get_subcommands().empty()) {
            controller::serve(options);
        }
    });
    app.parse_complete_callback([] { store::prepare_secrets(); });
    return tools::run(app, argc, argv, tools::Commands::optional);
}
