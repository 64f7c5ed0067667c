/**
 * A device that keeps the commands' rules in a map: what it answers, stores, commits and
 * reports, without an agent.
 */
#ifndef TESTS_CONTROLLER_DESIRED_MODEL_H
#define TESTS_CONTROLLER_DESIRED_MODEL_H

#include <map>

#include "tests/controller/desired_world.h"

namespace test {

class Model : public Box {
  public:
    Model();
    Json call(const std::string &command, const Json &request) override;
    Json binding() override;
    void restart() override { working_ = committed_; }
    bool takes_restart() override { return std::exchange(restarts_, false); }
    void restore() override { committed_ = factory_; }
    void edit(const std::string &key, const std::string &value) override {
        working_[key] = committed_[key] = value;
    }
    std::string value(const std::string &key) override { return working_[key]; }
    void fail_commits(int count) override { failing_commits_ = count; }

  private:
    using Values = std::map<std::string, std::string>;

    int number(const std::string &key) { return std::atoi(working_[key].c_str()); }
    void set(const std::string &key, const Json &value);
    bool commit();
    bool is_local() { return number("nx.manage.en") != 0 && number("nx.manage.mode") == 2; }

    int bind(const Json &request, Json &response);
    int stamps(const Json &request, Json &response);
    int maintenance(const Json &request);
    int ssids(const Json &request);
    int radios(const Json &request);
    void set_ssid(const std::string &key, const Json &ssid, bool &vlan_changed);
    Json report();
    Json report_ssid(const std::string &key, int slot);

    Values factory_, committed_, working_;
    int failing_commits_ = 0;
    bool restarts_ = false;
};

}  // namespace test

#endif
