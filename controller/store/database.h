/**
 * The database's thread: one connection, one writer, what waits together is committed
 * together.
 */
#ifndef CONTROLLER_STORE_DATABASE_H
#define CONTROLLER_STORE_DATABASE_H

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "controller/store/sql.h"

namespace store {

class Database {
  public:
    using Job = std::function<void(Sql &)>;
    using Done = std::function<void(std::exception_ptr)>;

    /** Opens "postgresql://..." or the file of a SQLite database, which is made when it is
     *  missing, and brings the schema up to date. Throws std::exception. */
    explicit Database(const std::string &where);

    /** Everything that waits is done first. */
    ~Database();

    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    /** Runs a job on the database's thread, whole or not at all. `done` is called there
     *  once it is committed, or with what went wrong; without `done` that is logged. Jobs
     *  run in their order. Any thread. */
    void post(Job job, Done done = {});

    /** The same, waiting for it; throws what went wrong. */
    void run(const Job &job);

    /** Copies a SQLite database into a file that is not there yet; others go on writing.
     *  Throws what went wrong. */
    void back_up(const std::string &file);

    /** Jobs that wait. */
    size_t waiting() const;

  private:
    struct Waiting {
        Job job;
        Done done;
        std::exception_ptr failure;
    };

    void work();
    void commit(std::deque<Waiting> &jobs);
    void run_all(std::deque<Waiting> &jobs);
    void reopen();

    struct Connection;
    std::unique_ptr<Connection> connection_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Waiting> jobs_;
    bool ends_ = false;
    std::thread thread_;
};

}  // namespace store

#endif
