// dro_fifo.h - events waiting for the dispatcher. Any thread may queue; only the dispatcher reads and removes.
//
// The 256 slots are not a ring: once the last one is used, events are dropped until the queue is completely empty.
#pragma once

#include <optional>
#include <string>

namespace dro {

// A producer's event: a type tag, of which 5 characters are kept, and a payload, normally JSON text.
struct Event {
    std::string type;
    std::optional<std::string> payload;
};

// Reset the queue's indexes. InitQueue is called once before the dispatcher starts, ClearQueue later.
void InitQueue();
void ClearQueue();

bool isQueueEmpty();
bool isQueueFull();

// Copies `event` into the next slot, its payload up to 2 MiB - 1 bytes, writes the progress mark kEnqueued to the store
// and then makes the event visible to the dispatcher. Returns 1, or 0 when the event is dropped: the last slot is
// taken, or out of memory.
int enqueue_buf(const Event& event);

// Removes the oldest event. Returns 1, or 0 when the queue was empty.
int dequeue();

// The oldest event, and the tag of the newest.
struct QueueHead {
    std::string type;
    std::string payload;
    std::string newestType;
};

// Waits for an event and copies the oldest. Returns `std::nullopt` after wake_dispatcher(true).
std::optional<QueueHead> wait_for_event();

// Wakes wait_for_event. With `stop` true, current and later waits return `std::nullopt` until it is called with false.
void wake_dispatcher(bool stop);

}  // namespace dro
