/**
 * A fresh virtual access point for each test, with a clock that the test moves
 * and the test in the place of the cloud.
 */
#ifndef TESTS_SUPPORT_SUPPORT_H
#define TESTS_SUPPORT_SUPPORT_H

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "handler.h"
#include "nxapi/local.h"
#include "tests/support/temp_folder.h"
#include "virtual/vap.h"

namespace test {

using Lines = std::vector<std::string>;

class Device : public ::testing::Test {
  protected:
    explicit Device(const vap::NewDevice &kind = {.serial = "NXT0000000001"});
    ~Device() override;

    /** Runs a command through the wrapper; the response text, "" when the
     *  wrapper refused. */
    std::string call(nx_handler handler, const std::string &request = "");

    /** The same, parsed. */
    vap::Json answer(nx_handler handler, const std::string &request = "");

    /** The verdict alone, "resp_code". */
    int verdict(nx_handler handler, const std::string &request = "") {
        return answer(handler, request).at("resp_code").get<int>();
    }

    /** Hands a text to a parser of downloaded configuration; the parser's result. */
    static int parse(int (*parser)(const cJSON *), const std::string &text);

    /** Sets committed configuration, before the agent does anything. */
    void set(const std::string &key, const std::string &value) { vap::config_set(key, value); }

    /** Puts the device under local management, which refuses most commands. */
    void manage_locally();

    /** What a key holds now, pending writes included; "(absent)" without one. */
    static std::string get(const std::string &key);

    /** The journal since the last look, one line an effect: the operation and
     *  its arguments, "SetValue sys.timezone 20"; uploads stand in their place as
     *  "nx_api_alarm_upload <text>". Null arguments read "null". */
    Lines effects();

    /** The same, only the effects whose operation is one of these. */
    Lines effects(const Lines &operations);

    /** Uploads so far under one name. */
    std::vector<nxapi::Upload> uploads(const std::string &name);

    /** Makes every upload of this name give this result (-1: refused). */
    void refuse(const std::string &name, int result = -1);

    /** Makes the nth upload from now (1: the next) be refused, whatever its name. */
    void refuse_upload(int nth) { until_refusal_ = nth; }

    /** Plans no refusal any more; true when one was still to come. */
    bool forget_refusal() { return until_refusal_.exchange(0) > 0; }

    /** Writes a file at a device path ("/etc/lan.ini"). */
    void write_file(const std::string &device_path, const std::string &text);
    std::string read_file(const std::string &device_path);

    /** Standard output of the agent while `act` runs, with tracing on or off. */
    static std::string output_of(const std::function<void()> &act, bool traced = true);

    /** Refuses a command each allocation of cJSON in turn: it loses none, and an answer
     *  that leaves has these members or fails, for the lack of each once at least. */
    void expect_members_or_failure(nx_handler handler, const std::string &request,
                                   const Lines &members);

    /** Refuses an upload each allocation of cJSON in turn: it loses none and gives -1
     *  without an upload of this name, until it gives 0 with one. */
    void expect_whole_or_nothing(const std::function<int()> &act, const std::string &upload);

    const std::filesystem::path &folder() const { return folder_.path(); }

  private:
    TempFolder folder_;
    std::mutex mutex_;
    std::vector<nxapi::Upload> uploads_;
    std::vector<std::pair<std::string, int>> refused_;
    std::atomic<int> until_refusal_ = 0;
};

/** While it lives, the nth allocation of cJSON from its start (1: the first)
 *  fails, or none for 0. */
class JsonAllocations {
  public:
    explicit JsonAllocations(int failing = 0);
    ~JsonAllocations();
    JsonAllocations(const JsonAllocations &) = delete;
    JsonAllocations &operator=(const JsonAllocations &) = delete;

    /** Allocations so far, and those not yet freed. */
    static int made();
    static int live();
};

/** Runs `act` with its first allocation of cJSON failing, then with its second, and
 *  so on until it needs no more; each run must free what it took. `check` follows
 *  every run, with whether nothing failed in it. Returns the number of runs. */
int fail_each_allocation(const std::function<void()> &act,
                         const std::function<void(bool passed)> &check);

}  // namespace test

#endif
