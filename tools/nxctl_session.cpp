#include "tools/nxctl_session.h"

#include <mqtt_protocol.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nxapi/broker_address.h"
#include "nxapi/mqtt_error.h"
#include "nxapi/topics.h"

namespace nxctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tools::Failure;

constexpr seconds patience{10};    /**< with a broker that says nothing */
constexpr milliseconds quiet{300}; /**< a longer pause ends what a broker retains */
constexpr int keepalive_s = 60;
constexpr int first_failure = 0x80;

using Owned = std::unique_ptr<void, void (*)(void *)>;

Received received(const mosquitto_message &message, const mosquitto_property *properties) {
    Received out;
    out.topic = message.topic;
    out.payload.assign(static_cast<const char *>(message.payload),
                       static_cast<size_t>(message.payloadlen));
    out.retained = message.retain;
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) != nullptr) {
        const Owned owner(data, std::free);
        out.correlation.assign(static_cast<const char *>(data), length);
    }
    const mosquitto_property *at = properties;
    for (bool again = false; at != nullptr; again = true) {
        char *name = nullptr;
        char *value = nullptr;
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, again);
        const Owned name_owner(name, std::free);
        const Owned value_owner(value, std::free);
        if (at != nullptr && std::strcmp(name, nxapi::topics::result_property) == 0) {
            std::from_chars(value, value + std::strlen(value), out.result);
        }
    }
    return out;
}

Session &session(void *self) {
    return *static_cast<Session *>(self);
}

const char *text_or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

void must_read(const std::string &path) {
    errno = 0;
    FILE *file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        throw Failure(tools::cannot("read", path));
    }
    std::fclose(file);
}

}  // namespace

/** No exception may pass through libmosquitto. */
template <typename Call>
void Session::shielded(Call call) noexcept {
    try {
        call();
    } catch (...) {
        thrown_ = std::current_exception();
    }
}

void Session::set_callbacks() {
    mosquitto *mosq = mosq_.get();
    mosquitto_connect_v5_callback_set(
        mosq, [](mosquitto *, void *self, int reason, int, const mosquitto_property *) {
            session(self).connected_ = reason == MQTT_RC_SUCCESS;
            if (reason != MQTT_RC_SUCCESS) {
                session(self).refusal_ = mosquitto_reason_string(reason);
            }
        });
    mosquitto_disconnect_v5_callback_set(
        mosq, [](mosquitto *, void *self, int reason, const mosquitto_property *) {
            if (reason >= first_failure) {
                session(self).refusal_ = mosquitto_reason_string(reason);
            }
        });
    mosquitto_subscribe_callback_set(mosq, [](mosquitto *, void *self, int, int count,
                                              const int *granted) {
        session(self).subscribed_ = true;
        if (const int worst = *std::max_element(granted, granted + count); worst >= first_failure) {
            session(self).refusal_ = mosquitto_reason_string(worst);
        }
    });
    mosquitto_message_v5_callback_set(mosq, [](mosquitto *, void *self,
                                               const mosquitto_message *message,
                                               const mosquitto_property *properties) {
        session(self).shielded([&] { session(self).on_message(received(*message, properties)); });
    });
    mosquitto_publish_v5_callback_set(
        mosq, [](mosquitto *, void *self, int identifier, int reason, const mosquitto_property *) {
            session(self).shielded([&] { session(self).on_acknowledged(identifier, reason); });
        });
    mosquitto_log_callback_set(mosq, [](mosquitto *, void *self, int level, const char *line) {
        if (level == MOSQ_LOG_ERR) {
            session(self).last_problem_ = line;
        }
    });
}

void Session::set_tls(const Access &access) {
    if (access.cafile.empty()) {
        throw tools::Misuse("a mqtts:// broker needs --ca FILE");
    }
    if (access.certfile.empty() != access.keyfile.empty()) {
        throw tools::Misuse("--cert FILE and --key FILE belong together");
    }
    for (const std::string *path : {&access.cafile, &access.certfile, &access.keyfile}) {
        if (!path->empty()) {
            must_read(*path);
        }
    }
    if (const int result = mosquitto_tls_set(mosq_.get(), access.cafile.c_str(), nullptr,
                                             text_or_null(access.certfile),
                                             text_or_null(access.keyfile), nullptr)) {
        throw Failure("TLS cannot be set up (" + nxapi::mqtt_error_text(result, errno) + ")");
    }
}

Session::Session(const Access &access)
    : mosq_((mosquitto_lib_init(), mosquitto_new(nullptr, true, this)), mosquitto_destroy) {
    nxapi::BrokerAddress broker;
    std::string why;
    if (!nxapi::parse_broker(access.broker, broker, why)) {
        throw tools::Misuse(why);
    }
    address_ = broker.host + ":" + std::to_string(broker.port);
    tls_ = broker.tls;
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_username_pw_set(mosq_.get(), text_or_null(access.user),
                              text_or_null(access.password));
    set_callbacks();
    if (tls_) {
        set_tls(access);
    }
    connect(broker.host, broker.port);
}

void Session::connect(const std::string &host, int port) {
    errno = 0;
    const int result = mosquitto_connect_async(mosq_.get(), host.c_str(), port, keepalive_s);
    if (result > 0) {
        fail(result, errno);
    }
    // With TLS, libmosquitto neither says whether TCP is on its way nor leaves its error.
    tcp_pending_ = true;
    tcp_error_ = errno == EINPROGRESS || errno == EAGAIN ? 0 : errno;
    if (!work([&] { return connected_; }, Clock::now() + patience)) {
        throw Lost(tcp_pending_
                       ? "cannot connect to " + address_ + " (" + std::strerror(ETIMEDOUT) + ")"
                       : address_ + " does not answer like a broker");
    }
}

std::string Session::reason(int result, int error) const {
    if (!refusal_.empty()) {
        return refusal_;
    }
    if (!tls_ || connected_ || tcp_pending_) {
        return nxapi::mqtt_error_text(result, error);
    }
    const std::string problem = last_problem_.substr(last_problem_.rfind(':') + 1);
    if (problem.find("certificate verify failed") != problem.npos) {
        return "TLS: the broker's certificate does not come from --ca FILE, is not for this host, "
               "or is out of date";
    }
    const bool told = !problem.empty() && problem.find("alert") == problem.npos;
    return "TLS: " + (told ? problem
                           : "the broker wants a certificate that it knows, see --cert and --key" +
                                 (problem.empty() ? problem : ": " + problem));
}

void Session::fail(int result, int error) {
    throw Lost((connected_ ? "lost the connection to " : "cannot connect to ") + address_ + " (" +
               reason(result, error) + ")");
}

// A limit of the broker on messages that wait would cut what it retains for a large fleet,
// but holds for messages of QoS 1 and 2 alone: so the retained ones come with QoS 0, and
// the later ones, which are few at a time, with QoS 1.
void Session::subscribe(const std::vector<std::string> &topics) {
    agree(topics, 0, MQTT_SUB_OPT_SEND_RETAIN_ALWAYS);
    agree(topics, 1, MQTT_SUB_OPT_SEND_RETAIN_NEVER);
}

void Session::agree(const std::vector<std::string> &topics, int qos, int options) {
    std::vector<char *> texts;
    for (const std::string &topic : topics) {
        texts.push_back(const_cast<char *>(topic.c_str()));
    }
    subscribed_ = false;
    const int result = mosquitto_subscribe_multiple(
        mosq_.get(), nullptr, static_cast<int>(texts.size()), texts.data(), qos, options, nullptr);
    if (result != MOSQ_ERR_SUCCESS) {
        fail(result, errno);
    }
    last_in_ = Clock::now();
    while (!work([&] { return subscribed_; }, last_in_ + patience)) {
        if (Clock::now() >= last_in_ + patience) {
            throw Lost(address_ + " does not answer");
        }
    }
    if (!refusal_.empty()) {
        throw Failure("the broker does not let this console listen (" + refusal_ + ")");
    }
}

void Session::settle() {
    for (last_in_ = Clock::now(); Clock::now() < last_in_ + quiet;) {
        work([] { return false; }, last_in_ + quiet);
    }
}

int Session::publish(const Sent &message) {
    mosquitto_property *properties = nullptr;
    if (!message.response_topic.empty()) {
        mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                      message.response_topic.c_str());
        mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                      message.correlation.data(),
                                      static_cast<uint16_t>(message.correlation.size()));
    }
    if (message.expiry.count() > 0) {
        mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                     static_cast<uint32_t>(message.expiry.count()));
    }
    int identifier = 0;
    errno = 0;
    const int result = mosquitto_publish_v5(
        mosq_.get(), &identifier, message.topic.c_str(), static_cast<int>(message.payload.size()),
        message.payload.data(), 1, message.retained, properties);
    mosquitto_property_free_all(&properties);
    if (result == MOSQ_ERR_OVERSIZE_PACKET) {
        throw Failure("a message of " + std::to_string(message.payload.size()) +
                      " bytes is larger than the broker takes");
    }
    if (result != MOSQ_ERR_SUCCESS) {
        throw Failure("cannot send to " + message.topic + " (" +
                      nxapi::mqtt_error_text(result, errno) + ")");
    }
    return identifier;
}

// libmosquitto wants to write throughout a TLS handshake, though it waits for the broker.
short Session::wanted_events() const {
    if (tcp_pending_) {
        return POLLOUT;
    }
    const bool handshake = tls_ && !connected_;
    const bool writes = !handshake && mosquitto_want_write(mosq_.get());
    return static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN);
}

void Session::take_tcp(short ready) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(mosquitto_socket(mosq_.get()), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error == 0 && (ready & (POLLHUP | POLLERR)) != 0) {
        error = tcp_error_;
    }
    if (error != 0) {
        fail(MOSQ_ERR_ERRNO, error);
    }
    tcp_pending_ = false;
}

void Session::step() {
    errno = 0;
    int result = mosquitto_loop_read(mosq_.get(), 1);
    if (result == MOSQ_ERR_SUCCESS && mosquitto_want_write(mosq_.get())) {
        result = mosquitto_loop_write(mosq_.get(), 1);
    }
    if (result == MOSQ_ERR_SUCCESS) {
        result = mosquitto_loop_misc(mosq_.get());
    }
    const int error = errno;
    if (thrown_) {
        std::rethrow_exception(std::exchange(thrown_, nullptr));
    }
    if (result != MOSQ_ERR_SUCCESS) {
        fail(result, error);
    }
}

pollfd Session::wanted() const {
    return {mosquitto_socket(mosq_.get()), wanted_events(), 0};
}

void Session::take(short ready) {
    if (tcp_pending_ && ready != 0) {
        take_tcp(ready);
    }
    if (!tcp_pending_) {
        last_in_ = (ready & POLLIN) != 0 ? Clock::now() : last_in_;
        step();
    }
    if (!connected_ && (ready & (POLLHUP | POLLERR)) != 0) {
        fail(MOSQ_ERR_CONN_LOST, 0);
    }
}

bool Session::work(const std::function<bool()> &done, Clock::time_point until) {
    while (!done()) {
        const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        const auto wait = static_cast<int>(std::min(left, milliseconds(1000)).count());
        pollfd broker = wanted();
        poll(&broker, 1, wait);
        take(broker.revents);
    }
    return true;
}

}  // namespace nxctl
