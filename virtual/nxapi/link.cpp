#include "virtual/nxapi/link.h"

#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "virtual/nxapi/log.h"
#include "virtual/nxapi/sigpipe.h"
#include "virtual/nxapi/topics.h"

namespace nxapi {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t stack_bytes = 256 * 1024;

/** Messages that are on their way at once, unless the broker wants fewer. */
constexpr uint16_t widest_window = 20;

/** How long messages under the old serial number may take to get through. */
constexpr seconds longest_leave{2};

/** A connection that lasted this many first pauses was a sound one: the pauses begin
 *  anew behind it. */
constexpr int sound_after_pauses = 10;

/** Stands for a broker that wants no pings. */
constexpr seconds no_keepalive = std::chrono::hours(24 * 365);

/** The first of MQTT's reason codes that tell of a failure. */
constexpr int first_failure = 0x80;

unsigned random_seed() {
    unsigned seed = 1;
    [[maybe_unused]] const ssize_t size = getrandom(&seed, sizeof(seed), 0);
    return seed;
}

int socket_error(int fd) {
    int error = 0;
    socklen_t size = sizeof(error);
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

/** Every signal but those that a fault of the thread itself raises. */
sigset_t foreign_signals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        sigdelset(&signals, own);
    }
    return signals;
}

using Owned = std::unique_ptr<char, decltype(&std::free)>;

void say_dropped(const std::string &topic, int result) {
    say(Level::warning, "a message to %s cannot be sent (%s); it is dropped", topic.c_str(),
        mosquitto_strerror(result));
}

std::string response_topic_of(const mosquitto_property *properties) {
    char *text = nullptr;
    mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &text, false);
    const Owned owner(text, std::free);
    return text == nullptr ? std::string() : std::string(text);
}

std::optional<std::string> correlation_of(const mosquitto_property *properties) {
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) == nullptr) {
        return std::nullopt;
    }
    const Owned owner(static_cast<char *>(data), std::free);
    return std::string(owner.get(), length);
}

}  // namespace

Link::Link(const Settings &settings, Inbox &inbox)
    : settings_(settings),
      inbox_(inbox),
      backoff_(milliseconds(settings.retry_ms), random_seed()),
      client_(*this),
      outbox_(static_cast<size_t>(settings.queue_messages),
              static_cast<size_t>(settings.queue_bytes)) {}

Link::~Link() {
    if (runs_) {
        {
            const std::lock_guard guard(lock_);
            stopping_ = true;
        }
        wake_.signal();
        pthread_join(thread_, nullptr);
    }
}

bool Link::start() {
    if (wake_.fd() < 0 || !client_.exists()) {
        return false;
    }
    const sigset_t signals = foreign_signals();
    sigset_t before;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack_bytes);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    runs_ = pthread_create(&thread_, &attributes, run_thread, this) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return runs_;
}

void Link::introduce(const std::string &serial, std::string identity) {
    const std::lock_guard guard(lock_);
    serial_ = serial;
    identity_ = std::move(identity);
    if (is_linked() && !is_retired()) {
        publish_kept(topics::identity, identity_);
        write_from_here();
    } else {
        wake_.signal();
    }
}

void Link::bind(std::string binding) {
    const std::lock_guard guard(lock_);
    binding_ = std::move(binding);
    if (is_linked()) {
        publish_kept(topics::binding, *binding_);
        write_from_here();
    }
}

bool Link::send(Message message) {
    const std::lock_guard guard(lock_);
    if (!outbox_.push(std::move(message))) {
        return false;
    }
    if (is_linked()) {
        write_from_here();
    }
    return true;
}

bool Link::is_up() {
    const std::lock_guard guard(lock_);
    return state_ == State::up;
}

// Written on the caller's thread, a message reaches the broker one change of threads
// sooner. What the socket does not take is left to the network thread.
void Link::write_from_here() {
    SigpipeHeld signal;
    pump();
    flush();
    if (state_ == State::down) {
        signal.write_failed();
    }
    if (state_ == State::down || client_.wants_write()) {
        wake_.signal();
    }
}

void *Link::run_thread(void *self) {
    pthread_setname_np(pthread_self(), "nxapi");
    static_cast<Link *>(self)->run();
    return nullptr;
}

void Link::run() {
    Held held(lock_);
    while (!stopping_) {
        if (!serial_.empty()) {
            try {
                connect(held);
                serve(held);
            } catch (const std::bad_alloc &) {
                if (!held.owns_lock()) {
                    held.lock();
                }
                lose(std::strerror(ENOMEM));
            }
            inbox_.announce();
            sum_up();
        }
        rest(held);
    }
}

void Link::connect(Held &held) {
    linked_serial_ = serial_;
    why_down_.clear();
    last_problem_.clear();
    state_ = State::connecting;
    const std::string id = settings_.client_id.empty() ? serial_ : settings_.client_id;
    const std::string status = topics::of_device(serial_, topics::status);
    // The look-up of the name blocks. Nobody else touches the client before it is up.
    held.unlock();
    std::string why;
    const int result = client_.connect(settings_, id, status, why);
    held.lock();
    if (result > 0) {
        lose(std::move(why));
        return;
    }
    tcp_pending_ = result < 0;
    deadline_ = Clock::now() + milliseconds(settings_.connect_timeout_ms);
    if (!tcp_pending_) {
        flush();
    }
}

void Link::serve(Held &held) {
    while (state_ != State::down) {
        pollfd fds[] = {{client_.socket(), wanted_events(), 0}, {wake_.fd(), POLLIN, 0}};
        const int timeout = wait_ms();
        held.unlock();
        inbox_.announce();
        const int ready = poll(fds, 2, timeout);
        held.lock();
        if (ready > 0 && fds[1].revents != 0) {
            wake_.clear();
        }
        progress(ready > 0 ? fds[0].revents : short{0});
    }
}

short Link::wanted_events() const {
    if (state_ == State::connecting) {
        // libmosquitto wants to write throughout a TLS handshake, though it waits for
        // the broker.
        if (tcp_pending_) {
            return POLLOUT;
        }
        if (settings_.broker.tls) {
            return POLLIN;
        }
    }
    return static_cast<short>(client_.wants_write() ? POLLIN | POLLOUT : POLLIN);
}

int Link::wait_ms() const {
    const Clock::time_point until =
        state_ == State::up ? ping_due() : std::min(deadline_, Clock::now() + seconds(1));
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

void Link::progress(short ready) {
    if (state_ == State::down) {
        return;  // Another thread met the end of the connection.
    }
    if (stopping_) {
        if (is_linked()) {
            client_.leave();
        }
        lose({});
        return;
    }
    if (state_ == State::connecting) {
        handle_connecting(ready);
    } else if (ready != 0) {
        receive();
    }
    if (is_linked()) {
        pump();
        flush();
        keep_alive();
        leave_when_done();
    }
}

void Link::handle_connecting(short ready) {
    if (tcp_pending_ && ready != 0) {
        if (const int error = socket_error(client_.socket())) {
            lose(std::strerror(error));
            return;
        }
        tcp_pending_ = false;
    }
    if (!tcp_pending_) {
        receive();
        flush();
    }
    if (state_ == State::connecting && (ready & (POLLHUP | POLLERR)) != 0) {
        lose("the broker closed the connection");
    }
    if (state_ == State::connecting && (Clock::now() >= deadline_ || is_retired())) {
        lose(is_retired() ? "" : "the broker does not answer");
    }
}

void Link::receive() {
    last_in_ = Clock::now();
    const int result = client_.read();
    const int error = errno;
    if (result != MOSQ_ERR_SUCCESS || client_.socket() < 0) {
        lose(mqtt_error_text(result, error));
    }
}

void Link::pump() {
    while (is_linked() && outbox_.in_flight() < window_) {
        const Message *message = outbox_.next();
        if (message == nullptr) {
            return;
        }
        int identifier = 0;
        const int result = client_.publish(message->below_device
                                               ? topics::of_device(linked_serial_, message->topic)
                                               : message->topic,
                                           *message, false, identifier);
        if (result == MOSQ_ERR_SUCCESS) {
            outbox_.sent(identifier);
        } else if (result == MOSQ_ERR_NOMEM) {
            return;
        } else {
            say_dropped(message->topic, result);
            outbox_.refuse_next();
        }
    }
}

void Link::flush() {
    if (state_ == State::down || !client_.wants_write()) {
        return;
    }
    last_out_ = Clock::now();
    const int result = client_.write();
    if (result != MOSQ_ERR_SUCCESS) {
        lose(mqtt_error_text(result, errno));
    }
}

Link::Clock::time_point Link::ping_due() const {
    // libmosquitto counts in whole seconds of the same clock.
    return std::chrono::floor<seconds>(std::min(last_in_, last_out_)) + keepalive_;
}

void Link::keep_alive() {
    const Clock::time_point now = Clock::now();
    if (!is_linked() || now < ping_due()) {
        return;
    }
    const int result = client_.ping();
    if (result != MOSQ_ERR_SUCCESS) {
        lose(mqtt_error_text(result, errno));
        return;
    }
    // Without a ping, libmosquitto's own count is a second behind: ask again then.
    last_in_ = last_out_ = client_.wants_write() ? now : now - keepalive_ + seconds(1);
    flush();
}

void Link::leave_when_done() {
    if (!is_linked() || !is_retired()) {
        return;
    }
    if (state_ == State::up) {
        state_ = State::leaving;
        deadline_ = Clock::now() + longest_leave;
    }
    if (outbox_.in_flight() + outbox_.waiting() == 0 || Clock::now() >= deadline_) {
        client_.leave();
        lose({});
    }
}

void Link::lose(std::string why) {
    if (state_ == State::down) {
        return;
    }
    state_ = State::down;
    if (why_down_.empty()) {
        why_down_ = std::move(why);
    }
    outbox_.link_lost();
}

void Link::sum_up() {
    const bool was_up = up_since_ != Clock::time_point();
    if (was_up &&
        Clock::now() - up_since_ >= sound_after_pauses * milliseconds(settings_.retry_ms)) {
        backoff_.reset();
    }
    up_since_ = {};
    if (!why_down_.empty()) {
        const std::string reason =
            last_problem_.empty() ? why_down_ : why_down_ + ": " + last_problem_;
        if (was_up || reason != said_) {
            say(Level::warning, "%s %s:%d (%s); trying again until it works",
                was_up ? "lost the connection to" : "cannot connect to",
                settings_.broker.host.c_str(), settings_.broker.port, reason.c_str());
            said_ = reason;
        }
    }
    client_.forget();
}

void Link::rest(Held &held) {
    const bool until_introduced = serial_.empty();
    if (!until_introduced && why_down_.empty()) {
        return;
    }
    const Clock::time_point end = Clock::now() + backoff_.next();
    while (!stopping_ && !is_retired()) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
        if (left <= 0 && !until_introduced) {
            return;
        }
        pollfd wake{wake_.fd(), POLLIN, 0};
        held.unlock();
        poll(&wake, 1, until_introduced ? -1 : static_cast<int>(left));
        held.lock();
        wake_.clear();
    }
    backoff_.reset();
}

void Link::publish_kept(std::string_view below, std::string_view text) {
    int identifier = 0;
    Message message;
    message.payload = text;
    const std::string topic = topics::of_device(linked_serial_, below);
    if (const int result = client_.publish(topic, message, true, identifier)) {
        say_dropped(topic, result);
    }
}

void Link::on_connected(int reason, const mosquitto_property *properties) {
    if (reason != MQTT_RC_SUCCESS) {
        why_down_ = mosquitto_reason_string(reason);
        return;
    }
    uint16_t keepalive = static_cast<uint16_t>(settings_.keepalive_s);
    mosquitto_property_read_int16(properties, MQTT_PROP_SERVER_KEEP_ALIVE, &keepalive, false);
    keepalive_ = keepalive == 0 ? no_keepalive : seconds(keepalive);
    uint16_t receive_maximum = widest_window;
    mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &receive_maximum, false);
    window_ = std::min(receive_maximum, widest_window);
    client_.stop_log();
    // Whoever sees the device online finds it listening: the broker takes these in order.
    if (const int result =
            client_.subscribe(topics::of_device(linked_serial_, topics::commands) + "+/+")) {
        lose(mqtt_error_text(result, errno));
        return;
    }
    publish_kept(topics::status, topics::online);
    publish_kept(topics::identity, identity_);
    if (binding_) {
        publish_kept(topics::binding, *binding_);
    }
    state_ = State::up;  // not before: without memory for all this, the device tries anew
    up_since_ = Clock::now();
    refusal_said_ = false;
    said_.clear();
    say(Level::notice, "connected to %s:%d as %s", settings_.broker.host.c_str(),
        settings_.broker.port, linked_serial_.c_str());
}

void Link::on_disconnected(int reason) {
    if (reason >= first_failure && why_down_.empty()) {
        why_down_ = mosquitto_reason_string(reason);
    }
}

void Link::on_message(const mosquitto_message &message, const mosquitto_property *properties) {
    const std::string prefix = topics::of_device(linked_serial_, topics::commands);
    const std::string_view topic(message.topic);
    if (!topic.starts_with(prefix)) {
        return;
    }
    if (message.retain) {
        say(Level::warning, "a retained command on %s is dropped", message.topic);
        return;
    }
    Command command;
    command.target = topic.substr(prefix.size());
    command.request.assign(static_cast<const char *>(message.payload),
                           static_cast<size_t>(message.payloadlen));
    command.response_topic = response_topic_of(properties);
    command.correlation = correlation_of(properties);
    if (!inbox_.put(command)) {
        say(Level::warning, "too many commands wait; the one on %s is refused", message.topic);
        outbox_.push(response_to(command, -1, {}));
    }
}

void Link::on_acknowledged(int identifier, int reason) {
    outbox_.acknowledged(identifier);
    if (outbox_.waiting() == 0) {
        if (const size_t dropped = outbox_.take_dropped()) {
            say(Level::warning, "%zu messages found no place in the queue and were dropped",
                dropped);
        }
    }
    if (reason >= first_failure && !refusal_said_) {
        refusal_said_ = true;
        say(Level::warning, "the broker refuses messages of %s (%s)", linked_serial_.c_str(),
            mosquitto_reason_string(reason));
    }
}

void Link::on_subscribed(int granted) {
    if (granted >= first_failure) {
        say(Level::warning, "the broker does not let %s receive commands (%s)",
            linked_serial_.c_str(), mosquitto_reason_string(granted));
    }
}

void Link::on_log(int level, const char *line) {
    if (level == MOSQ_LOG_ERR || level == MOSQ_LOG_WARNING) {
        last_problem_ = line;
    }
    say(Level::debug, "%s", line);
}

}  // namespace nxapi
