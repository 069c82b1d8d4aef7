#include "dro_fifo.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "dro_durations.h"
#include "dro_get_set_config_checkpoint.h"
#include "dro_log.h"
#include "dro_stop.h"
#include "dro_sync.h"

namespace dro {
namespace {

constexpr int kSlots = 256;
constexpr std::size_t kTypeLength = 5;
constexpr std::size_t kPayloadSize = std::size_t{2} * 1024 * 1024;

struct Unmap {
    void operator()(char* pages) const { munmap(pages, kPayloadSize); }
};
using PayloadPages = std::unique_ptr<char, Unmap>;
using TypeText = FixedText<40>;

struct Slot {
    TypeText type;
    PayloadPages payload;
    bool visible = false;  // true once the event's progress mark is written
};

Mutex g_lock;
Condition g_changed;
// Never destroyed: threads may still use the slots at exit.
Immortal<std::array<Slot, kSlots>> g_slots;
int head DRO_GUARDED_BY(g_lock) = -1;
int tail DRO_GUARDED_BY(g_lock) = -1;
unsigned g_generation DRO_GUARDED_BY(g_lock) = 0;  // incremented by each reset of the queue
bool g_stopped DRO_GUARDED_BY(g_lock) = false;

std::array<Slot, kSlots>& ArrQueue() {
    return *g_slots;
}
Slot& slot_at(int index) {
    return ArrQueue()[static_cast<std::size_t>(index % kSlots)];
}

// Zeroed memory that the kernel commits on first use. Huge pages are disabled: one byte would commit the whole slot.
PayloadPages take_pages() {
    void* pages =
        mmap(nullptr, kPayloadSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) {
        return nullptr;
    }
    madvise(pages, kPayloadSize, MADV_NOHUGEPAGE);
    return PayloadPages(static_cast<char*>(pages));
}

// A slot reserved for an event that is not visible yet. `index` is -1 when no slot was left.
struct TakenSlot {
    int index;
    unsigned generation;
};

TakenSlot take_slot(const std::string& type) {
    const MutexLock lock(g_lock);
    if (tail == kSlots - 1) {
        return {-1, g_generation};
    }
    ++tail;
    if (head == -1) {
        head = tail;
    }
    Slot& slot = slot_at(tail);
    slot.type.assign(std::string_view(type).substr(0, kTypeLength));
    slot.visible = false;
    return {tail, g_generation};
}

// Makes the event visible to the dispatcher, unless the queue was reset since the slot was taken.
void show(const TakenSlot& taken, PayloadPages payload) {
    const MutexLock lock(g_lock);
    if (taken.generation == g_generation) {
        slot_at(taken.index).payload = std::move(payload);
        slot_at(taken.index).visible = true;
        g_changed.notify_all();
    }
}

PayloadPages copy_payload(const Event& event) {
    PayloadPages pages = take_pages();
    if (!pages) {
        LOG_ERROR("[DROAGENT] - Failed to allocate memory for payload.\n");
    } else if (event.payload) {
        std::memcpy(pages.get(), event.payload->data(), std::min(event.payload->size(), kPayloadSize - 1));
    }
    return pages;
}

void reset_indexes() {
    const MutexLock lock(g_lock);
    tail = -1;
    head = -1;
    ++g_generation;
}

bool head_visible() DRO_REQUIRES(g_lock) {
    return head != -1 && slot_at(head).visible;
}

}  // namespace

void InitQueue() {
    reset_indexes();
}
void ClearQueue() {
    reset_indexes();
}

bool isQueueEmpty() {
    const MutexLock lock(g_lock);
    return head == -1;
}

bool isQueueFull() {
    const MutexLock lock(g_lock);
    return tail == kSlots - 1;
}

int enqueue_buf(const Event& event) {
    LOG_TRACE("In func %s\n", "enqueue_buf");
    LOG_TRACE("After memset\n");
    if (isQueueFull()) {
        return 0;
    }
    PayloadPages payload = copy_payload(event);
    if (!payload) {
        return 0;
    }
    const TakenSlot slot = take_slot(event.type);
    if (slot.index == -1) {
        return 0;
    }
    pause_for(durations().queuePause);
    write_checkpoint(kEnqueued);
    show(slot, std::move(payload));
    LOG_TRACE("Returning from enqueue_buf\n");
    return 1;
}

int dequeue() {
    PayloadPages payload;
    int position = -1;
    {
        const MutexLock lock(g_lock);
        if (head == -1) {
            return 0;
        }
        Slot& oldest = slot_at(head);
        payload = std::move(oldest.payload);
        oldest.type.clear();
        oldest.visible = false;
        if (head != tail) {
            position = head++;
        } else {
            tail = -1;
            head = -1;
        }
    }
    if (position != -1) {
        LOG_TRACE("Dequeue Queue Data at index : %s, at Queue position = %d\n", payload.get(), position);
    }
    return 1;
}

std::optional<QueueHead> wait_for_event() {
    const MutexLock lock(g_lock);
    while (!g_stopped && !head_visible()) {
        g_changed.wait(g_lock);
    }
    if (g_stopped) {
        return std::nullopt;
    }
    const Slot& oldest = slot_at(head);
    return QueueHead{oldest.type.c_str(), oldest.payload.get(), slot_at(tail).type.c_str()};
}

void wake_dispatcher(bool stop) {
    const MutexLock lock(g_lock);
    g_stopped = stop;
    g_changed.notify_all();
}

}  // namespace dro
