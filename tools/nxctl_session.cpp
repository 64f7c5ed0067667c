#include "tools/nxctl_session.h"

#include <mqtt_protocol.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "nxapi/broker_address.h"
#include "nxapi/mqtt_error.h"
#include "nxapi/topics.h"

namespace nxctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tools::Failure;

constexpr seconds patience{10}; /**< with a broker that says nothing */
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
        --session(self).open_;
        if (const int worst = *std::max_element(granted, granted + count); worst >= first_failure) {
            session(self).deaf_ = mosquitto_reason_string(worst);
        }
    });
    mosquitto_message_v5_callback_set(mosq,
                                      [](mosquitto *, void *self, const mosquitto_message *message,
                                         const mosquitto_property *properties) {
                                          session(self).shielded([&] {
                                              Received told = received(*message, properties);
                                              session(self).on_message(told);
                                          });
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

void Session::set_tls() {
    const Access &access = access_;
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

std::string address_text(const nxapi::BrokerAddress &broker) {
    return broker.host + ":" + std::to_string(broker.port);
}

Session::Session(const Access &access, const nxapi::BrokerAddress &broker)
    : access_(access),
      broker_{broker},
      address_(address_text(broker)),
      route_(broker_, 0),
      mosq_(nullptr, mosquitto_destroy) {
    mosquitto_lib_init();
    connect();
}

/** Goes on to the next address of the broker's name until one is on its way. */
void Session::connect() {
    for (;;) {
        std::string why;
        const nxapi::Stop *stop = route_.next(why);
        if (stop == nullptr) {
            throw Lost("cannot connect to " + address_ + " (" + why + ")");
        }
        try {
            open(stop->address);
            return;
        } catch (const Lost &) {
            if (route_.is_round_over()) {
                throw;
            }
        }
    }
}

void Session::open(const std::string &host) {
    mosq_.reset(mosquitto_new(nullptr, true, this));
    refusal_.clear();
    last_problem_.clear();
    began_ = Clock::now();
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_username_pw_set(mosq_.get(), text_or_null(access_.user),
                              text_or_null(access_.password));
    set_callbacks();
    if (broker_[0].tls) {
        set_tls();
    }
    errno = 0;
    const int result =
        mosquitto_connect_async(mosq_.get(), host.c_str(), broker_[0].port, keepalive_s);
    const int error = errno;
    // With TLS, libmosquitto neither says whether TCP is on its way nor leaves its error.
    // What fails at once may be TCP or TLS, which has its own errno.
    tcp_pending_ = result <= 0 || (result != MOSQ_ERR_TLS && error != EPROTO);
    tcp_error_ = error == EINPROGRESS || error == EAGAIN ? 0 : error;
    if (result > 0) {
        fail(result, error);
    }
}

std::string Session::reason(int result, int error) const {
    if (!refusal_.empty()) {
        return refusal_;
    }
    if (!broker_[0].tls || connected_ || tcp_pending_) {
        return nxapi::mqtt_error_text(result, error);
    }
    const std::string problem = last_problem_.substr(last_problem_.rfind(':') + 1);
    if (problem.find("certificate verify failed") != problem.npos) {
        return "TLS: the broker's certificate does not come from --ca FILE, is not for this host, "
               "or is out of date";
    }
    if (problem.empty()) {
        return "TLS: the broker ended the handshake: it wants a certificate that it knows, see "
               "--cert and --key, or speaks no TLS";
    }
    const bool is_alert = problem.find("alert") != problem.npos;
    return (is_alert ? "TLS: the broker wants a certificate that it knows, see --cert and --key: "
                     : "TLS: ") +
           problem;
}

void Session::fail(int result, int error) const {
    throw Lost((connected_ ? "lost the connection to " : "cannot connect to ") + address_ + " (" +
               reason(result, error) + ")");
}

void Session::subscribe(const std::vector<std::string> &topics) {
    to_ask_.push_back(topics);
}

// A limit of the broker on messages that wait would cut what it retains for a large fleet,
// but holds for messages of QoS 1 and 2 alone: so the retained ones come with QoS 0, and
// the later ones, which are few at a time, with QoS 1.
void Session::ask() {
    const auto all = std::exchange(to_ask_, {});
    for (const std::vector<std::string> &topics : all) {
        agree(topics, 0, MQTT_SUB_OPT_SEND_RETAIN_ALWAYS);
        agree(topics, 1, MQTT_SUB_OPT_SEND_RETAIN_NEVER);
    }
}

void Session::agree(const std::vector<std::string> &topics, int qos, int options) {
    std::vector<char *> texts;
    for (const std::string &topic : topics) {
        texts.push_back(const_cast<char *>(topic.c_str()));
    }
    last_in_ = Clock::now();
    ++open_;
    const int result = mosquitto_subscribe_multiple(
        mosq_.get(), nullptr, static_cast<int>(texts.size()), texts.data(), qos, options, nullptr);
    if (result != MOSQ_ERR_SUCCESS) {
        fail(result, errno);
    }
}

std::optional<int> Session::publish(const Sent &message) {
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
    if (result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_CONN_LOST || result == MOSQ_ERR_ERRNO) {
        return std::nullopt;
    }
    if (result != MOSQ_ERR_SUCCESS) {
        throw Failure("cannot send to " + message.topic + " (" +
                      nxapi::mqtt_error_text(result, errno) + ")");
    }
    return identifier;
}

// libmosquitto wants to write throughout a TLS handshake, though it waits for the broker.
pollfd Session::wanted() const {
    const bool handshake = broker_[0].tls && !connected_;
    const bool asks = connected_ && !to_ask_.empty();
    const bool writes = asks || (!handshake && mosquitto_want_write(mosq_.get()));
    const int events = tcp_pending_ ? POLLOUT : writes ? POLLIN | POLLOUT : POLLIN;
    return {mosquitto_socket(mosq_.get()), static_cast<short>(events), 0};
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

/** Reads and writes. */
void Session::exchange() {
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

void Session::check_time() const {
    const auto now = Clock::now();
    if (!connected_ && now >= std::min(began_ + patience, latest_)) {
        throw Lost(tcp_pending_
                       ? "cannot connect to " + address_ + " (" + std::strerror(ETIMEDOUT) + ")"
                       : address_ + " does not answer like a broker");
    }
    if (open_ > 0 && now >= last_in_ + patience) {
        throw Lost(address_ + " does not answer");
    }
    if (!deaf_.empty()) {
        throw Lost(address_ + " does not let this console listen (" + deaf_ + ")");
    }
}

void Session::step(short ready) {
    if (tcp_pending_ && ready != 0) {
        take_tcp(ready);
    }
    if (!tcp_pending_) {
        last_in_ = (ready & POLLIN) != 0 ? Clock::now() : last_in_;
        exchange();
    }
    if (!connected_ && (ready & (POLLHUP | POLLERR)) != 0) {
        fail(MOSQ_ERR_CONN_LOST, 0);
    }
    if (connected_) {
        ask();
    }
    check_time();
}

void Session::work(short ready) {
    try {
        step(ready);
    } catch (const Lost &) {
        if (connected_ || route_.is_round_over()) {
            throw;
        }
        connect();
    }
}

}  // namespace nxctl
