/**
 * Brings each device to its site's configuration: tells the pure part what happened, keeps
 * what it knows, sends what it orders.
 */
#ifndef CONTROLLER_CONVERGE_CONVERGER_H
#define CONTROLLER_CONVERGE_CONVERGER_H

#include <map>
#include <memory>
#include <random>
#include <string>

#include "controller/desired/step.h"
#include "controller/fleet/fleet.h"
#include "controller/store/vault.h"

namespace converge {

struct Site {
    long long id = 0;
    desired::Json document; /**< canonical, with its id */
    long long version = 1;
    desired::Json configuration = nullptr; /**< canonical; null for none */
    long long configuration_version = 0;
};

/** One thread, that of the fleet. */
class Converger {
  public:
    /** Takes sites, overrides and what is known of devices from the database. */
    Converger(store::Database &database, const store::Vault &vault, fleet::Fleet &fleet,
              fleet::Fleet::Post post);

    const std::map<long long, Site> &sites() const { return sites_; }
    const Site *site(long long id) const;

    /** A new site, or a part of one that the database has already. */
    void add_site(const Site &site) { sites_[site.id] = site; }
    void set_document(long long id, const desired::Json &document, long long version);
    void set_configuration(long long id, const desired::Json &configuration, long long version);
    void drop_site(long long id) { sites_.erase(id); }

    /** Canonical overrides of a device; null for none. */
    desired::Json overrides(const std::string &serial) const;
    void set_overrides(const std::string &serial, desired::Json overrides);

    /** Something happened to a device, in the words of `fleet::Fleet::on_change`. */
    void heard(const std::string &serial, const std::string &what, const std::string &text);

    /** Somebody's command was answered. */
    void commanded(const std::string &serial, const std::string &name, const std::string &request);

    /** Looks at a device as soon as possible. */
    void consider(const std::string &serial);

    void forget(const std::string &serial) { progress_.erase(serial); }

    /** Looks at devices whose time has come. Several times a second. */
    void tick();

  private:
    struct Progress {
        desired::Known known;
        desired::Json overrides = nullptr;
        desired::Time look_at = 0;
    };

    void consider_site(long long id);
    desired::Desire desire_of(const fleet::Device &device, const Progress &progress) const;
    void absorb(const std::string &serial, const desired::Event &event);
    void look(const fleet::Device &device, Progress &progress);
    void send(const std::string &serial, const desired::Order &order);
    void keep(const std::string &serial, const Progress &progress, store::Database::Done done = {});

    store::Database &database_;
    const store::Vault &vault_;
    fleet::Fleet &fleet_;
    fleet::Fleet::Post post_;
    std::map<long long, Site> sites_;
    std::map<std::string, Progress> progress_;
};

}  // namespace converge

#endif
