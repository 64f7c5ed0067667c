/**
 * The texts on their way to the broker. What waits is bounded: when a text comes
 * that no longer fits, the oldest waiting ones are dropped for it.
 */
#ifndef NXAPI_OUTBOX_H
#define NXAPI_OUTBOX_H

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace nxapi {

struct Message {
    std::string topic; /**< below the device's own topic, or the whole of it */
    bool below_device = true;
    std::string payload;
    std::optional<std::string> correlation; /**< of the command that this answers */
    std::optional<int> result;              /**< of the command's callback */

    /** What it holds of memory, without the record itself. */
    size_t bytes() const {
        return topic.size() + payload.size() + (correlation ? correlation->size() : 0);
    }
};

/** Messages leave in their order, each under a packet identifier until the broker
 *  has acknowledged it. Not locked: the link's lock guards it. */
class Outbox {
  public:
    /** Bounds of what waits: messages, and the bytes of all their texts. */
    Outbox(size_t most_messages, size_t most_bytes)
        : most_messages_(most_messages), most_bytes_(most_bytes) {}

    /** False when the message alone is larger than everything that may wait. */
    bool push(Message message);

    /** The oldest waiting message; null when none waits. Valid until the next call. */
    const Message *next() const;

    /** `next` is on its way under a packet identifier. */
    void sent(int identifier);

    /** `next` cannot be sent at all. */
    void refuse_next();

    /** Forgets a message that the broker has; false when the identifier is none of
     *  this box. */
    bool acknowledged(int identifier);

    /** The unacknowledged messages wait again, ahead of the others. */
    void link_lost();

    size_t in_flight() const { return flying_; }
    size_t waiting() const { return entries_.size() - flying_; }

    /** How many messages were dropped since the last call. */
    size_t take_dropped();

  private:
    struct Entry {
        Message message;
        int identifier = 0;
    };

    void drop_oldest();

    std::deque<Entry> entries_; /**< the ones in flight first */
    size_t flying_ = 0;
    size_t waiting_bytes_ = 0;
    size_t dropped_ = 0;
    size_t most_messages_;
    size_t most_bytes_;
};

}  // namespace nxapi

#endif
