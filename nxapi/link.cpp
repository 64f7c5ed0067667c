#include "nxapi/link.h"

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
#include <iterator>
#include <new>
#include <utility>

#include "nxapi/log.h"
#include "nxapi/mqtt_error.h"
#include "nxapi/sigpipe.h"
#include "nxapi/topics.h"

namespace nxapi {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t stack_bytes = 256 * 1024;

/** How long messages under the old serial number may take to get through. */
constexpr seconds longest_leave{2};

/** How long the main thread may keep what the broker sent waiting. */
constexpr milliseconds longest_absence{500};

/** Packets that are read before what they bring is worked off. */
constexpr int most_packets = 32;

/** A connection that lasted this many first pauses was a sound one: the pauses begin
 *  anew behind it. */
constexpr int sound_after_pauses = 10;

/** After so many unsound ones in a row, ended without a reason, somebody else may be to
 *  blame. */
constexpr int suspicious_lives = 3;

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

}  // namespace

Link::Link(const Settings &settings, Inbox &inbox)
    : settings_(settings),
      inbox_(inbox),
      backoff_(milliseconds(settings.retry_ms), random_seed()),
      route_(settings.brokers, random_seed()),
      client_(*this),
      outbox_(static_cast<size_t>(settings.queue_messages),
              static_cast<size_t>(settings.queue_bytes)),
      said_(settings.brokers.size()) {
    gate_.admit(inbox.fd());
}

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
    if (wake_.fd() < 0 || patience_.fd() < 0 || !client_.exists()) {
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

void Link::complain(Trouble trouble, std::string_view what) {
    const std::lock_guard guard(lock_);
    troubles_.add(trouble, what);
    troubles_.tell();
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
    troubles_.tell();
    if (state_ == State::down) {
        signal.write_failed();
    }
    if (state_ == State::down || client_.wants_write()) {
        wake_.signal();
    }
    expect_main_thread();
}

// Whoever holds the lock may read: what the broker sent stays in its order. As a rule it
// is the main thread, so that a command is read, run and answered without a change of
// threads.
void Link::begin_turn() {
    const std::lock_guard guard(lock_);
    standing_in_ = false;
    is_in_turn_ = true;
    expect_main_thread();
    if (!is_linked() || !gate_.is_socket_ready()) {
        return;
    }
    if (route_.broker().tls) {
        SigpipeHeld signal;  // TLS answers some of what it reads by itself
        receive();
        if (!is_linked()) {
            signal.write_failed();
        }
    } else {
        receive();
    }
    if (!is_linked() || is_retired()) {
        wake_.signal();
    }
}

void Link::end_turn() {
    const std::lock_guard guard(lock_);
    ++turns_;
    is_in_turn_ = false;
    troubles_.tell();
    if (is_linked() && (client_.wants_write() || outbox_.waiting() != 0)) {
        write_from_here();
    }
}

// What the broker sends from here on, be it an acknowledgement, the main thread has to
// read soon, or to leave to the network thread.
void Link::expect_main_thread() {
    if (!is_expected_ && is_linked()) {
        is_expected_ = true;
        turns_before_ = turns_;
        patience_.set(longest_absence);
    }
}

void Link::look_for_main_thread() {
    patience_.clear();
    is_expected_ = false;
    standing_in_ = turns_ == turns_before_;
    if (!standing_in_ && (is_in_turn_ || outbox_.in_flight() != 0)) {
        expect_main_thread();  // to end the turn that it has begun meanwhile, or to come
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
    reason_given_ = 0;
    first_problem_.clear();
    state_ = State::connecting;
    ++connection_;
    since_ =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    const std::string id = settings_.client_id.empty() ? serial_ : settings_.client_id;
    // The look-up of the name blocks. Nobody else touches route and client before the
    // client is up.
    held.unlock();
    std::string why;
    const Stop *stop = route_.next(why);
    const int result = stop == nullptr
                           ? MOSQ_ERR_EAI
                           : client_.connect(settings_,
                                             {route_.broker(), stop->address, id,
                                              topics::of_device(linked_serial_, topics::status),
                                              topics::presence(false, connection_, since_)},
                                             why);
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
        const short wanted = wanted_events();
        pollfd fds[] = {{wanted == 0 ? -1 : client_.socket(), wanted, 0},
                        {wake_.fd(), POLLIN, 0},
                        {patience_.fd(), POLLIN, 0}};
        const int timeout = wait_ms();
        held.unlock();
        inbox_.announce();
        const int ready = poll(fds, std::size(fds), timeout);
        held.lock();
        if (ready > 0 && fds[1].revents != 0) {
            wake_.clear();
        }
        if (ready > 0 && fds[2].revents != 0) {
            look_for_main_thread();
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
        if (route_.broker().tls) {
            return POLLIN;
        }
    }
    const bool reads = state_ == State::connecting || standing_in_;
    return static_cast<short>((reads ? POLLIN : 0) | (client_.wants_write() ? POLLOUT : 0));
}

int Link::wait_ms() const {
    const Clock::time_point until =
        state_ == State::up ? next_look() : std::min(deadline_, Clock::now() + seconds(1));
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
    } else if ((ready & ~POLLOUT) != 0 && (standing_in_ || (ready & POLLIN) == 0)) {
        receive();
    }
    if (is_linked()) {
        pump();
        flush();
        keep_alive();
        leave_when_done();
    }
    troubles_.tell();
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

// The library stops at each packet that it answers, and no event comes for what TLS has
// decoded already: it is called until it has nothing to tell.
void Link::receive() {
    last_in_ = Clock::now();
    answer_due_.reset();
    int result = MOSQ_ERR_SUCCESS;
    int packets = 0;
    unsigned heard = 0;
    do {
        heard = heard_;
        result = client_.read();
    } while (result == MOSQ_ERR_SUCCESS && heard_ != heard &&
             (++packets < most_packets || route_.broker().tls));
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
            troubles_.add(Trouble::unsendable, message->topic + ", " + mosquitto_strerror(result));
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

Link::Clock::time_point Link::next_look() const {
    return answer_due_ ? std::min(*answer_due_, ping_due()) : ping_due();
}

void Link::keep_alive() {
    if (is_linked() && Clock::now() >= next_look() && gate_.is_socket_ready()) {
        receive();  // the answer to the ping before, for one, when the main thread is away
    }
    const Clock::time_point now = Clock::now();
    if (is_linked() && answer_due_ && now >= *answer_due_) {
        lose(mqtt_error_text(MOSQ_ERR_KEEPALIVE, 0));
    }
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
    if (client_.wants_write()) {
        answer_due_ = now + milliseconds(keepalive_) / 2;
    }
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
    gate_.close_socket();
    standing_in_ = false;
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
        route_.arrived();
        short_lives_ = 0;
    } else if (was_up && reason_given_ == 0 && !why_down_.empty()) {
        ++short_lives_;
    }
    up_since_ = {};
    troubles_.tell();
    if (!why_down_.empty()) {
        const std::string reason =
            first_problem_.empty() ? why_down_ : why_down_ + ": " + first_problem_;
        const BrokerAddress &broker = route_.broker();
        std::string &said = said_[route_.place()];
        if (was_up || reason != said) {
            say(Level::warning, "%s %s:%d (%s)%s; trying %s until it works",
                was_up ? "lost the connection to" : "cannot connect to", broker.host.c_str(),
                broker.port, reason.c_str(), was_up ? rival().c_str() : "",
                said_.size() > 1 ? "all brokers" : "again");
            said = reason;
        }
    }
    client_.forget();
}

// The broker lets one client in under a name, and the latest wins; not every broker
// says so to the other one.
std::string Link::rival() const {
    if (reason_given_ != MQTT_RC_SESSION_TAKEN_OVER && short_lives_ < suspicious_lives) {
        return {};
    }
    return "; another client probably uses the serial number " + linked_serial_;
}

void Link::rest(Held &held) {
    const bool until_introduced = serial_.empty();
    if (!until_introduced && why_down_.empty()) {
        return;
    }
    const Clock::time_point end =
        Clock::now() + (route_.is_round_over() ? backoff_.next() : backoff_.first());
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
        troubles_.add(Trouble::unsendable, topic + ", " + mosquitto_strerror(result));
    }
}

}  // namespace nxapi
