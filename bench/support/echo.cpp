/* The floor of whatever runs on a broker: the least program on libmosquitto and cJSON
 * that appears like a device and answers each command with a text of its own. */
#include <cjson/cJSON.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string device;

/** The agent's answer to a command that does nothing. */
char *answer_to(const std::string &request_text) {
    cJSON *request = cJSON_ParseWithLength(request_text.data(), request_text.size());
    cJSON *response = cJSON_CreateObject();
    cJSON_AddNumberToObject(response, "resp_code", request != nullptr ? 0 : -1);
    char *text = cJSON_Print(response);
    cJSON_Delete(response);
    cJSON_Delete(request);
    return text;
}

struct Command {
    std::string request;
    std::string reply_topic;
    std::string mark; /**< correlation data */
};

void obey(mosquitto *mosq, const Command &command) {
    char *text = answer_to(command.request);
    mosquitto_property *reply = nullptr;
    if (!command.mark.empty()) {
        mosquitto_property_add_binary(&reply, MQTT_PROP_CORRELATION_DATA, command.mark.data(),
                                      static_cast<uint16_t>(command.mark.size()));
    }
    if (!command.reply_topic.empty()) {
        mosquitto_publish_v5(mosq, nullptr, command.reply_topic.c_str(),
                             static_cast<int>(strlen(text)), text, 1, false, reply);
    }
    mosquitto_property_free_all(&reply);
    cJSON_free(text);
}

void on_message(mosquitto *mosq, void *, const mosquitto_message *message,
                const mosquitto_property *properties) {
    Command command{
        {static_cast<const char *>(message->payload), static_cast<size_t>(message->payloadlen)},
        {},
        {}};
    char *topic = nullptr;
    void *data = nullptr;
    uint16_t size = 0;
    if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false) !=
        nullptr) {
        command.reply_topic = topic;
    }
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &size,
                                       false) != nullptr) {
        command.mark.assign(static_cast<const char *>(data), size);
    }
    free(data);
    free(topic);
    obey(mosq, command);
}

void on_connect(mosquitto *mosq, void *, int) {
    static constexpr char online[] = R"({"online":true})";
    mosquitto_subscribe(mosq, nullptr, (device + "/cmd/+/+").c_str(), 1);
    mosquitto_publish(mosq, nullptr, (device + "/status").c_str(), sizeof online - 1, online, 1,
                      true);
}

}  // namespace

int main(int count, char **arguments) {
    if (count != 3) {
        fputs("Usage: bench_echo PORT SERIAL\n", stderr);
        return 2;
    }
    device = std::string("norvex/v1/") + arguments[2];
    mosquitto_lib_init();
    mosquitto *mosq = mosquitto_new(arguments[2], true, nullptr);
    mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_callback_set(mosq, on_connect);
    mosquitto_message_v5_callback_set(mosq, on_message);
    if (mosquitto_connect(mosq, "127.0.0.1", atoi(arguments[1]), 60) != MOSQ_ERR_SUCCESS) {
        fputs("bench_echo: cannot connect\n", stderr);
        return 1;
    }
    return mosquitto_loop_forever(mosq, -1, 1);
}
