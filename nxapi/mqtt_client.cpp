#include "nxapi/mqtt_client.h"

#include <fcntl.h>
#include <mqtt_protocol.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

#include "nxapi/inbox.h"
#include "nxapi/log.h"
#include "nxapi/mqtt_error.h"
#include "nxapi/topics.h"

namespace nxapi {
namespace {

/** No exception may pass through libmosquitto. */
template <typename Call>
void shielded(Call call) noexcept {
    try {
        call();
    } catch (const std::bad_alloc &) {
        say(Level::error, "out of memory");
    }
}

MqttEvents &events(void *context) {
    return *static_cast<MqttEvents *>(context);
}

void set_callbacks(mosquitto *mosq) {
    mosquitto_connect_v5_callback_set(mosq, [](mosquitto *, void *context, int reason, int,
                                               const mosquitto_property *properties) {
        shielded([&] { events(context).on_connected(reason, properties); });
    });
    mosquitto_disconnect_v5_callback_set(
        mosq, [](mosquitto *, void *context, int reason, const mosquitto_property *) {
            shielded([&] { events(context).on_disconnected(reason); });
        });
    mosquitto_message_v5_callback_set(
        mosq, [](mosquitto *, void *context, const mosquitto_message *message,
                 const mosquitto_property *properties) {
            shielded([&] { events(context).on_message(*message, properties); });
        });
    mosquitto_publish_v5_callback_set(mosq, [](mosquitto *, void *context, int identifier,
                                               int reason, const mosquitto_property *) {
        shielded([&] { events(context).on_acknowledged(identifier, reason); });
    });
    mosquitto_subscribe_v5_callback_set(mosq, [](mosquitto *, void *context, int, int count,
                                                 const int *granted, const mosquitto_property *) {
        shielded([&] { events(context).on_subscribed(count > 0 ? granted[0] : 0x80); });
    });
    mosquitto_log_callback_set(mosq, [](mosquitto *, void *context, int level, const char *line) {
        shielded([&] { events(context).on_log(level, line); });
    });
}

/** libmosquitto ignores SIGPIPE for the whole process when the first client is made;
 *  children would inherit that. */
mosquitto *new_client() {
    static std::once_flag library;
    std::call_once(library, [] { mosquitto_lib_init(); });
    struct sigaction before {};
    sigaction(SIGPIPE, nullptr, &before);
    mosquitto *mosq = mosquitto_new(nullptr, true, nullptr);
    sigaction(SIGPIPE, &before, nullptr);
    return mosq;
}

bool is_own_open_pair(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    return fcntl(fd, F_GETFD) == 0 && getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.pid == getpid();
}

/** libmosquitto wakes its own loop through a socket pair, which stays open in
 *  children and which nobody empties here. New descriptors are the lowest free ones,
 *  so the pair stands before one that is opened behind it. */
void tame_wake_pair() {
    const int behind = open("/dev/null", O_RDONLY | O_CLOEXEC);
    for (int fd = STDERR_FILENO + 1; fd < behind; ++fd) {
        if (is_own_open_pair(fd)) {
            const int least = 0;
            fcntl(fd, F_SETFD, FD_CLOEXEC);
            setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &least, sizeof(least));
        }
    }
    close(behind);
}

const char *text_or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

int set_tls(mosquitto *mosq, const Settings &settings) {
    constexpr int verify_peer = 1;
    if (const int result = mosquitto_tls_set(mosq, settings.cafile.c_str(), nullptr,
                                             text_or_null(settings.certfile),
                                             text_or_null(settings.keyfile), nullptr)) {
        return result;
    }
    mosquitto_tls_insecure_set(mosq, !settings.tls_verify);
    return mosquitto_tls_opts_set(mosq, settings.tls_verify ? verify_peer : 0, nullptr, nullptr);
}

/** The first TLS file that cannot be read; libmosquitto does not tell which. */
std::string unreadable_file(const Settings &settings) {
    for (const std::string *path : {&settings.cafile, &settings.certfile, &settings.keyfile}) {
        if (path->empty()) {
            continue;
        }
        FILE *file = std::fopen(path->c_str(), "re");
        if (file == nullptr) {
            return "cannot read " + *path + " (" + std::strerror(errno) + ")";
        }
        std::fclose(file);
    }
    return {};
}

}  // namespace

MqttClient::MqttClient(MqttEvents &events) : events_(events), mosq_(new_client()) {
    if (exists()) {
        forget();
    }
}

int MqttClient::renew(const char *id) {
    const int result = mosquitto_reinitialise(mosq_.get(), id, true, &events_);
    tame_wake_pair();
    return result;
}

void MqttClient::forget() {
    renew(nullptr);
}

// What is longer than everything that may wait would cost its length three times before
// it could be refused, so the broker is asked to keep it. Only the call that blocks takes
// properties; for a port that is none it keeps them and goes no further.
int MqttClient::bound_packets() {
    constexpr int no_port = -1;
    mosquitto_property *properties = nullptr;
    int result =
        mosquitto_property_add_int32(&properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, Inbox::most_bytes);
    if (result == MOSQ_ERR_SUCCESS) {
        result = mosquitto_connect_bind_v5(mosq_.get(), "", no_port, 0, nullptr, properties);
    }
    mosquitto_property_free_all(&properties);
    return result == MOSQ_ERR_INVAL ? MOSQ_ERR_SUCCESS : result;
}

int MqttClient::configure(const Settings &settings, const Target &target) {
    mosquitto *mosq = mosq_.get();
    // What the others do not write at once, this thread writes when it is ready.
    mosquitto_threaded_set(mosq, true);
    mosquitto_int_option(mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq, MOSQ_OPT_TCP_NODELAY, 1);
    set_callbacks(mosq);
    if (const int result = bound_packets()) {
        return result;
    }
    if (const int result = mosquitto_will_set_v5(mosq, target.will_topic.c_str(),
                                                 static_cast<int>(target.will.size()),
                                                 target.will.data(), 1, true, nullptr)) {
        return result;
    }
    if (const int result = mosquitto_username_pw_set(mosq, text_or_null(settings.username),
                                                     text_or_null(settings.password))) {
        return result;
    }
    return target.broker.tls ? set_tls(mosq, settings) : MOSQ_ERR_SUCCESS;
}

int MqttClient::connect(const Settings &settings, const Target &target, std::string &why) {
    int result = renew(target.id.c_str());
    if (result == MOSQ_ERR_SUCCESS) {
        result = configure(settings, target);
    }
    if (result != MOSQ_ERR_SUCCESS) {
        why = target.broker.tls ? unreadable_file(settings) : std::string();
        if (why.empty()) {
            why = mqtt_error_text(result, errno);
        }
        return result;
    }
    result = mosquitto_connect_async(mosq_.get(), target.address.c_str(), target.broker.port,
                                     settings.keepalive_s);
    const int error = errno;
    if (socket() >= 0) {
        fcntl(socket(), F_SETFD, FD_CLOEXEC);
    }
    if (result > 0) {
        why = mqtt_error_text(result, error);
    }
    return result;
}

void MqttClient::leave() {
    mosquitto_disconnect_v5(mosq_.get(), MQTT_RC_DISCONNECT_WITH_WILL_MSG, nullptr);
    write();
}

int MqttClient::subscribe(const std::string &topic) {
    return mosquitto_subscribe_v5(mosq_.get(), nullptr, topic.c_str(), 1,
                                  MQTT_SUB_OPT_SEND_RETAIN_NEVER | MQTT_SUB_OPT_RETAIN_AS_PUBLISHED,
                                  nullptr);
}

int MqttClient::publish(const std::string &topic, const Message &message, bool retain,
                        int &identifier) {
    mosquitto_property *properties = nullptr;
    int result = MOSQ_ERR_SUCCESS;
    if (message.correlation) {
        result = mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                               message.correlation->data(),
                                               static_cast<uint16_t>(message.correlation->size()));
    }
    if (result == MOSQ_ERR_SUCCESS && message.result) {
        result = mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY,
                                                    topics::result_property,
                                                    std::to_string(*message.result).c_str());
    }
    if (result == MOSQ_ERR_SUCCESS) {
        result = mosquitto_publish_v5(mosq_.get(), &identifier, topic.c_str(),
                                      static_cast<int>(message.payload.size()),
                                      message.payload.data(), 1, retain, properties);
    }
    mosquitto_property_free_all(&properties);
    return result;
}

}  // namespace nxapi
