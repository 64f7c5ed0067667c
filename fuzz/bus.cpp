/**
 * What the topology module says on the message bus. The first line is "event", or
 * "answer" for the whole object that answers the agent's question; the rest is JSON.
 */
#include <cjson/cJSON.h>

#include "fuzz/support.h"
#include "platform/holymsg.h"
#include "topo/server.h"

namespace {

std::string answer;

}  // namespace

extern "C" int __wrap_holymsg_publish_and_respond(const char *, const void *, int, cJSON **object) {
    cJSON *parsed = cJSON_Parse(answer.c_str());
    if (parsed != nullptr) {
        *object = parsed;
    }
    return parsed != nullptr ? 1 : 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::Input input = fuzz::input_of(data, size);
    fuzz::device();
    topo_upport = 224;  // not known: the report asks the module
    if (input.head == "event") {
        const std::string text = input.body.c_str();
        ntdd_server_in_which_port_event_callback("net_topo.server_port.from_kernel", text.c_str(),
                                                 static_cast<int>(text.size()), nullptr);
    } else {
        answer = input.body;
        ntdd_get_server_in_which_port();
    }
    fuzz::command("dev/19");
    return 0;
}
