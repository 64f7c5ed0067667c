#include "controller/store/database.h"

#include <soci/postgresql/soci-postgresql.h>
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <cstdio>
#include <future>
#include <string_view>

#include "schema_sql.h"

namespace store {
namespace {

constexpr size_t most_together = 500; /**< jobs of one commit */

bool is_postgresql(std::string_view where) {
    return where.starts_with("postgresql://") || where.starts_with("postgres://");
}

std::string what(const std::exception_ptr &failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception &error) {
        return error.what();
    }
}

/** The statements of a schema file; each ends with ";" at the end of a line. */
std::vector<std::string> statements_of(std::string text, bool postgresql) {
    const std::string id = "{{id}}";
    for (size_t at = 0; (at = text.find(id, at)) != text.npos;) {
        text.replace(at, id.size(),
                     postgresql ? "BIGSERIAL PRIMARY KEY" : "INTEGER PRIMARY KEY AUTOINCREMENT");
    }
    std::vector<std::string> statements;
    for (size_t from = 0, end = 0; (end = text.find(";\n", from)) != text.npos; from = end + 2) {
        statements.push_back(text.substr(from, end - from));
    }
    return statements;
}

/** Runs the numbered files that this database has not seen. */
void bring_up_to_date(soci::session &session, bool postgresql) {
    session.once << (postgresql ? "BEGIN" : "BEGIN IMMEDIATE");
    if (postgresql) {  // another instance may start now, too
        session.once << "SELECT pg_advisory_xact_lock(20261123)";
    }
    session.once << "CREATE TABLE IF NOT EXISTS schema_version (version BIGINT NOT NULL)";
    long long version = 0;
    soci::indicator none = soci::i_ok;
    session.once << "SELECT MAX(version) FROM schema_version", soci::into(version, none);
    version = none == soci::i_null ? 0 : version;
    const auto newest = static_cast<long long>(std::size(schema_files));
    if (version > newest) {
        throw std::runtime_error("the database is of a newer version of this program");
    }
    for (long long next = version + 1; next <= newest; ++next) {
        for (const std::string &statement : statements_of(schema_files[next - 1], postgresql)) {
            session.once << statement;
        }
        session.once << "INSERT INTO schema_version (version) VALUES (:version)",
            soci::use(next, "version");
    }
    session.once << "COMMIT";
}

}  // namespace

struct Database::Connection {
    explicit Connection(const std::string &address)
        : where(address), sql(session, is_postgresql(where)) {
        open();
    }

    void open() {
        if (sql.is_postgresql()) {
            session.open(*soci::factory_postgresql(), where);
            session.once << "SET client_min_messages TO warning";
        } else {
            session.open(*soci::factory_sqlite3(), parameters());
            session.once << "PRAGMA journal_mode=WAL";
            session.once << "PRAGMA synchronous=NORMAL";
            session.once << "PRAGMA foreign_keys=ON";
        }
        bring_up_to_date(session, sql.is_postgresql());
    }

    std::string parameters() const { return "timeout=10 dbname=\"" + where + "\""; }

    const std::string where;
    soci::session session;
    Sql sql;
};

Database::Database(const std::string &where) : connection_(std::make_unique<Connection>(where)) {
    thread_ = std::thread([this] { work(); });
}

Database::~Database() {
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Database::post(Job job, Done done) {
    {
        const std::lock_guard lock(mutex_);
        jobs_.push_back({std::move(job), std::move(done), nullptr});
    }
    wake_.notify_one();
}

void Database::run(const Job &job) {
    std::promise<void> end;
    post(job, [&](const std::exception_ptr &failure) {
        failure ? end.set_exception(failure) : end.set_value();
    });
    end.get_future().get();
}

void Database::back_up(const std::string &file) {
    soci::session copy(*soci::factory_sqlite3(), connection_->parameters());
    copy.once << "VACUUM INTO :file", soci::use(file, "file");
}

size_t Database::waiting() const {
    const std::lock_guard lock(mutex_);
    return jobs_.size();
}

void Database::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return ends_ || !jobs_.empty(); });
        if (jobs_.empty()) {
            return;
        }
        std::deque<Waiting> jobs;
        while (!jobs_.empty() && jobs.size() < most_together) {
            jobs.push_back(std::move(jobs_.front()));
            jobs_.pop_front();
        }
        lock.unlock();
        commit(jobs);
        std::exception_ptr told;
        for (const Waiting &job : jobs) {
            if (job.done) {
                job.done(job.failure);
            } else if (job.failure && job.failure != told) {  // a lost connection fails them all
                fprintf(stderr, "database: %s\n", what(job.failure).c_str());
                told = job.failure;
            }
        }
        jobs.clear();
        lock.lock();
    }
}

void Database::commit(std::deque<Waiting> &jobs) {
    soci::session &session = connection_->session;
    try {
        session.once << (connection_->sql.is_postgresql() ? "BEGIN" : "BEGIN IMMEDIATE");
        run_all(jobs);
        session.once << "COMMIT";
    } catch (...) {
        const std::exception_ptr failure = std::current_exception();
        for (Waiting &job : jobs) {
            job.failure = failure;
        }
        reopen();
    }
}

/** A job that fails takes back what it did itself, and the others stay. */
void Database::run_all(std::deque<Waiting> &jobs) {
    soci::session &session = connection_->session;
    for (Waiting &job : jobs) {
        session.once << "SAVEPOINT job";
        try {
            job.job(connection_->sql);
        } catch (...) {
            job.failure = std::current_exception();
            session.once << "ROLLBACK TO SAVEPOINT job";
        }
        session.once << "RELEASE SAVEPOINT job";
    }
}

/** Behind a commit that failed: the connection may be lost, or in the middle of one. */
void Database::reopen() {
    try {
        connection_->session.close();
        connection_->open();
    } catch (const std::exception &error) {
        fprintf(stderr, "database: %s\n", error.what());
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

}  // namespace store
