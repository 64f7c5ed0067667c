/**
 * The service as a process, with a broker, agents and a database of its own, and an HTTP
 * client that nobody here wrote.
 */
#ifndef TESTS_CONTROLLER_RUNNING_H
#define TESTS_CONTROLLER_RUNNING_H

#include <glob.h>
#include <pwd.h>

#include <nlohmann/json.hpp>

#include "paths.h"
#include "tests/support/broker.h"

namespace test {

using Json = nlohmann::json;

inline std::string text_of_file(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** Runs a program to its end; its output, also in `status` how it ended. */
inline std::string output_of(const std::vector<std::string> &words, int *status = nullptr,
                             const std::string &input = "") {
    const TempFolder folder;
    const std::string in = folder.path() / "in", out = folder.path() / "out";
    std::ofstream(in) << input;
    std::string line;
    for (const std::string &word : words) {
        std::string quoted = word;
        for (size_t at = 0; (at = quoted.find('\'', at)) != quoted.npos; at += 4) {
            quoted.replace(at, 1, "'\\''");
        }
        line += "'" + quoted + "' ";
    }
    const int ended = std::system((line + "<" + in + " >" + out + " 2>&1").c_str());
    if (status != nullptr) {
        *status = WEXITSTATUS(ended);
    }
    return text_of_file(out);
}

/** PostgreSQL on a UNIX socket, for the whole of the test's process. */
class Postgres {
  public:
    static Postgres &instance() {
        static Postgres postgres;
        return postgres;
    }

    /** The address of a new, empty database. */
    std::string make_database() {
        const std::string name = "test" + std::to_string(++count_);
        int status = -1;
        const std::string told = run({program("createdb"), "-h", folder(), name}, &status);
        if (status != 0) {
            throw std::runtime_error("no database: " + told);
        }
        return "postgresql:///" + name + "?host=" + folder() + "&user=" + user();
    }

  private:
    Postgres() {
        const passwd *nobody = getpwnam("nobody");
        if (geteuid() == 0 && chown(folder().c_str(), nobody->pw_uid, nobody->pw_gid) != 0) {
            throw std::runtime_error("cannot give a folder away");
        }
        int status = -1;
        const std::string told =
            run({program("initdb"), "-D", folder() + "/data", "-A", "trust", "-N"}, &status);
        if (status != 0) {
            throw std::runtime_error("no PostgreSQL: " + told);
        }
        std::vector<std::string> words = as_nobody();
        for (const std::string &word :
             {program("postgres"), std::string("-D"), folder() + "/data", std::string("-k"),
              folder(), std::string("-c"), std::string("listen_addresses="), std::string("-c"),
              std::string("fsync=off")}) {
            words.push_back(word);
        }
        server_ = std::make_unique<Child>(words, folder_.path() / "log");
        eventually([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            run({program("pg_isready"), "-h", folder()}, &status);
            return status == 0;
        });
    }

    ~Postgres() { server_->end(SIGINT); }

    /** Its programs refuse root. */
    static std::vector<std::string> as_nobody() {
        if (geteuid() != 0) {
            return {};
        }
        return {"setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups", "--"};
    }

    static std::string user() { return geteuid() == 0 ? "nobody" : getpwuid(geteuid())->pw_name; }

    static std::string run(const std::vector<std::string> &program, int *status) {
        std::vector<std::string> words = as_nobody();
        words.insert(words.end(), program.begin(), program.end());
        return output_of(words, status);
    }

    static std::string program(const std::string &name) {
        glob_t found{};
        glob(("/usr/lib/postgresql/*/bin/" + name).c_str(), 0, nullptr, &found);
        const std::string path = found.gl_pathc == 0 ? name : found.gl_pathv[0];
        globfree(&found);
        return path;
    }

    std::string folder() const { return folder_.path(); }

    TempFolder folder_;
    std::unique_ptr<Child> server_;
    int count_ = 0;
};

struct Answer {
    int status = 0;
    Json body; /**< null for what is no JSON */
    std::string text;
    std::string head; /**< the header, all names in lower case */
};

/** The service; it goes on where it was when it is started again. */
class Running {
  public:
    /** `options` stand behind those that every test needs. */
    explicit Running(const std::vector<std::string> &options, const std::string &database = "")
        : options_(options), database_(database) {
        start();
    }

    void start() {
        child_ = std::make_unique<Child>(words({"--listen", "127.0.0.1:" + std::to_string(port_)}),
                                         log_file());
        const bool up = eventually([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return !child_->is_running() || says_that_it_is_up();
        });
        if (!up || !child_->is_running()) {
            throw std::runtime_error("the service does not start: " + log());
        }
    }

    int stop(int signal = SIGTERM) { return child_->end(signal); }

    /** The command line of the program with its data and database. */
    std::vector<std::string> words(const std::vector<std::string> &more) const {
        std::vector<std::string> words{NORVEX_BIN_DIR "/norvex-controller", "--data",
                                       folder_.path() / "data"};
        if (!database_.empty()) {
            words.insert(words.end(), {"--database", database_});
        }
        words.insert(words.end(), options_.begin(), options_.end());
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    Answer http(const std::string &method, const std::string &path, const Json &body = nullptr,
                const std::vector<std::string> &headers = {}) const {
        const TempFolder folder;
        std::vector<std::string> words{"curl",
                                       "-s",
                                       "-g",
                                       "-X",
                                       method,
                                       "-D",
                                       folder.path() / "head",
                                       "-o",
                                       folder.path() / "body",
                                       "--max-time",
                                       "40",
                                       url() + path};
        if (method == "HEAD") {
            words.push_back("--head");
        }
        std::vector<std::string> lines = headers;
        if (!token.empty()) {
            lines.push_back("authorization: Bearer " + token);
        }
        if (!body.is_null()) {
            lines.push_back("content-type: application/json");
            std::ofstream(folder.path() / "in")
                << (body.is_string() ? body.get<std::string>() : body.dump());
            words.insert(words.end(), {"--data-binary", "@" + (folder.path() / "in").string()});
        }
        for (const std::string &line : lines) {
            words.insert(words.end(), {"-H", line});
        }
        output_of(words);
        Answer answer;
        answer.text = text_of_file(folder.path() / "body");
        answer.head = text_of_file(folder.path() / "head");
        answer.status = answer.head.size() > 12 ? std::stoi(answer.head.substr(9, 3)) : 0;
        answer.body = Json::parse(answer.text, nullptr, false);
        return answer;
    }

    Answer get(const std::string &path) const { return http("GET", path); }

    std::string log_file() const { return folder_.path() / "log"; }
    std::string log() const { return text_of_file(log_file()); }
    std::filesystem::path data() const { return folder_.path() / "data"; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    pid_t pid() const { return child_->pid(); }

    std::string token; /**< sent with each request */

  private:
    /** The line comes once for each start. */
    bool says_that_it_is_up() {
        const std::string text = log();
        const size_t at = text.find("Listening on", seen_);
        if (at == text.npos) {
            return false;
        }
        seen_ = at + 1;
        return true;
    }

    TempFolder folder_;
    size_t seen_ = 0; /**< bytes of the log */
    std::vector<std::string> options_;
    std::string database_;
    int port_ = Listener().port();
    std::unique_ptr<Child> child_;
};

/** A virtual access point and its agent. */
class Agent {
  public:
    Agent(const std::string &brokers, const std::string &serial) : serial_(serial) {
        output_of({NORVEX_BIN_DIR "/vap", "new", folder(), "--serial", serial});
        std::filesystem::create_directories(folder() + "/root/etc");
        std::ofstream(folder() + "/root/etc/nxapi.conf")
            << "broker=" << brokers << "\nretry_ms=50\nkeepalive_s=5\n";
        start();
    }

    void start() {
        child_ = std::make_unique<Child>(
            std::vector<std::string>{NORVEX_BIN_DIR "/vap", "run", folder()},
            place_.path() / "log");
    }
    void stop() { child_->end(SIGTERM); }

    std::string vap(const std::vector<std::string> &words) const {
        std::vector<std::string> all{NORVEX_BIN_DIR "/vap"};
        all.insert(all.end(), words.begin(), words.end());
        return output_of(all);
    }
    std::string folder() const { return place_.path() / "device"; }
    const std::string &serial() const { return serial_; }

  private:
    TempFolder place_;
    std::string serial_;
    std::unique_ptr<Child> child_;
};

/** Waits until a path answers what is looked for; the last answer. */
template <typename Good>
Answer wait_for(const Running &running, const std::string &path, Good good) {
    Answer answer;
    eventually([&] {
        answer = running.get(path);
        if (!good(answer)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return false;
        }
        return true;
    });
    return answer;
}

}  // namespace test

#endif
