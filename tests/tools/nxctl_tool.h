/**
 * nxctl, run as a person runs it, against a real broker and devices in the test's process.
 */
#ifndef TESTS_TOOLS_NXCTL_TOOL_H
#define TESTS_TOOLS_NXCTL_TOOL_H

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

#include "paths.h"
#include "tests/nxapi/cloud_device.h"

namespace test {

inline std::string text_of(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** Answers with the text that stands behind its private pointer. */
inline int answering_command(void *, int, const char *, char **out, int *out_len, void *text) {
    const std::string answer = static_cast<const char *>(text);
    *out = static_cast<char *>(cJSON_malloc(answer.size() + 1));
    std::memcpy(*out, answer.c_str(), answer.size() + 1);
    *out_len = static_cast<int>(answer.size());
    return 0;
}

/** Has done it, and told an identity before it says so. */
inline int restarting_command(void *, int, const char *, char **out, int *out_len, void *client) {
    static_cast<nxapi::Client *>(client)->upload("up/identity", "early");
    static char done[] = R"({"resp_code":0})";
    return answering_command(nullptr, 0, nullptr, out, out_len, done);
}

/** A device whose main thread is one of the test's. Slots of the cloud family: 0 echoes,
 *  1 refuses, 3 has done it, 4 has not; slot 4 of the net family has done it, and slot 5 of
 *  the dev family restarts. */
class LiveDevice {
  public:
    LiveDevice(const Broker &broker, const std::string &serial)
        : LiveDevice(settings_for(broker), serial) {}

    /** `first` serves slot 0. */
    LiveDevice(const nxapi::Settings &settings, const std::string &serial,
               nx_command_cb first = echo_command)
        : device_(settings, serial) {
        static char done[] = R"({"resp_code":0})";
        static char failed[] = R"({"resp_code":-1})";
        device_.serve(0, first);
        device_.serve(1, refusing_command);
        device_.serve(3, answering_command, done);
        device_.serve(4, answering_command, failed);
        device_.registry.tables[2][4] = {answering_command, done};
        device_.registry.tables[1][5] = {restarting_command, &device_.client};
        thread_ = std::thread([this] {
            while (!ends_) {
                device_.work(20);
            }
        });
        eventually([&] { return device_.client.is_up(); });
    }
    ~LiveDevice() {
        ends_ = true;
        thread_.join();
    }
    nxapi::Client &client() { return device_.client; }

  private:
    CloudDevice device_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

/** How a run of the tool ended. */
struct Outcome {
    int exit = -1;
    std::string out;
    std::string err;
};

class NxctlTool : public ::testing::Test {
  protected:
    explicit NxctlTool(
        const std::string &settings = "listener PORT 127.0.0.1\nallow_anonymous true\n")
        : broker(settings) {}

    /** Runs the tool through a shell, for at most 60 seconds. */
    Outcome run(const std::string &arguments, const std::string &environment = "") {
        const std::string line = "NXCTL_BROKER=" + broker.url() +
                                 " XDG_CONFIG_HOME=" + folder.path().string() + " " + environment +
                                 " timeout 60 " NORVEX_RUN_DIR "/nxctl " + arguments + " >" +
                                 path("out") + " 2>" + path("err");
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), text_of(path("out")), text_of(path("err"))};
    }

    /** Starts the tool with its output in a file. */
    Child start(std::vector<std::string> arguments, const std::string &file) {
        arguments.insert(arguments.begin(), {NORVEX_RUN_DIR "/nxctl", "--broker", broker.url()});
        return Child(arguments, path(file));
    }

    void retain(const std::string &topic, const std::string &text) { retain(broker, topic, text); }

    /** Leaves a text on a broker. */
    static void retain(const Broker &at, const std::string &topic, const std::string &text) {
        Console console(at, {}, topic);
        console.publish(topic, text, "", "", true);
        eventually([&] {
            console.loop();
            return !console.received.empty() && console.received.back().payload == text;
        });
    }

    bool appears(const std::string &file, const std::string &text) {
        return eventually([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return text_of(path(file)).find(text) != std::string::npos;
        });
    }

    std::string path(const std::string &name) const { return (folder.path() / name).string(); }

    std::string write(const std::string &name, const std::string &text) const {
        std::ofstream(folder.path() / name, std::ios::binary) << text;
        return path(name);
    }

    Broker broker;
    TempFolder folder;
};

}  // namespace test

#endif
