// dro_fifo.h - events waiting for the dispatcher. Any thread may queue; only the dispatcher looks and removes.
//
// 256 slots that are no ring: once the last has been taken, events are dropped until the queue has been emptied
// completely.
#pragma once

#include <optional>
#include <string>

namespace dro {

// What a producer hands over: a type tag, of which 5 characters are kept, and a payload, normally a JSON text.
struct Event {
    std::string type;
    std::optional<std::string> payload;
};

// Empties the queue's indexes. InitQueue is called once, before the dispatcher starts; ClearQueue later on.
void InitQueue();
void ClearQueue();

bool isQueueEmpty();
bool isQueueFull();

// Copies `event` into the next slot, its payload up to 2 MiB - 1 bytes, marks that in the store (kEnqueued) and then
// lets the dispatcher see it. Returns 1, or 0 when the last slot is taken: the event is dropped.
int enqueue_buf(const Event& event);

// Removes the oldest event. Returns 1, or 0 when the queue was empty.
int dequeue();

// The oldest event, and the tag of the newest, as the dispatcher finds them.
struct QueueHead {
    std::string type;
    std::string payload;
    std::string newestType;
};

// Waits for an event and copies the oldest. None once wake_dispatcher was called with `stop`.
std::optional<QueueHead> wait_for_event();

// Lets a waiting wait_for_event look again: with `stop` true it gives up, now and later, until called with false.
void wake_dispatcher(bool stop);

}  // namespace dro
