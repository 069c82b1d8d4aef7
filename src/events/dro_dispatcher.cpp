#include "dro_dispatcher.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <string_view>

#include "dro_durations.h"
#include "dro_fields.h"
#include "dro_fifo.h"
#include "dro_generic_cloud_push.h"
#include "dro_get_set_config_push.h"
#include "dro_log.h"
#include "dro_output.h"
#include "dro_pushst_cloud.h"
#include "dro_stop.h"
#include "dro_threads.h"

namespace dro {
namespace {

constexpr int kUnknown = -1;
constexpr Field kRequestType{"BSTResults", "bstRequestType"};

pthread_t t_droDispatcher;
bool g_running = false;  // used by the main thread at start-up and shutdown only
// Initialised and destroyed with the thread.
pthread_mutex_t mutex_droDispatcher;

// One type of event and how it is pushed. An event's type is the first one whose prefix matches its tag.
struct Type {
    std::string_view prefix;
    int number;
    void (*push)(const Type& type, const char* payload, bool claimed);
    AfterPush after = nullptr;

    void carry_on(const char* transaction) const {
        if (after != nullptr) {
            after(transaction);
        }
    }
};

void remove_event(const char* emptyText) {
    if (dequeue() == 0) {
        LOG_TRACE("%s", emptyText);
    }
}
constexpr const char* kQueueEmpty = "Queue is Empty. No element removed from Queue\n";

// True when shutdown interrupted the push. The event then stays queued, and no progress mark is written.
bool interrupted() {
    return stop_requested();
}

void push_new_device(const Type& /*type*/, const char* payload, bool claimed) {
    LOG_NOTICE("NDN Event Matched!\n");
    if (claimed) {
        pushToCloud_generic("NDN", payload);
        if (interrupted()) {
            return;
        }
    } else {
        LOG_ERROR("device not claimed yet!      Dropping PN event \n");
    }
    remove_event(kQueueEmpty);
}

void push_tagged(const Type& type, const char* payload, bool claimed) {
    LOG_TRACE("DTN Event Matched!\n");
    if (claimed) {
        const int finished = pushToCloud_generic("DTN", payload);
        if (interrupted()) {
            return;
        }
        if (finished == 0) {
            LOG_ERROR("DTN Sync not successfull\n");
        }
        type.carry_on("");
    } else {
        LOG_ERROR("device not claimed yet! Dropping PN event \n");
    }
    remove_event(kQueueEmpty);
}

void push_list(const Type& type, const char* payload, bool /*claimed*/) {
    LOG_TRACE("CDIL Event Matched!\n");
    FixedText<128> transaction;
    const int failed = pushToCloud_cdil(payload, &transaction);
    if (interrupted()) {
        return;
    }
    if (failed == 0) {
        LOG_TRACE("CDIL Sync successfull\n");
        type.carry_on(transaction.c_str());
    } else {
        LOG_ERROR("CDIL Sync not successfull\n");
    }
    remove_event(kQueueEmpty);
}

void push_speed_test(const Type& /*type*/, const char* payload, bool claimed) {
    LOG_NOTICE("BST Event Matched!!\n");
    LOG_TRACE("payload in dispatcher is %s\n", payload);
    if (claimed) {
        const bool scheduled = read_enum<16>(kRequestType).starts_with("Scheduled");
        const int refused = pushTocloud_bstdata(scheduled ? "B" : "M", payload);
        if (interrupted()) {
            return;
        }
        if (refused == 0) {
            LOG_TRACE("Setting bststats as unknown\n");
            write_enum(fields::BSTStatus, "Unknown");
        }
    } else {
        LOG_ERROR("device not claimed yet! Dropping PN event \n");
    }
    remove_event("Queue is Empty.No element removed from Queue\n");
}

void push_update(const Type& /*type*/, const char* payload, bool /*claimed*/) {
    LOG_NOTICE("UPDATE_CD Event Matched!\n");
    const int finished = pushToCloud_generic("UPDATE_CD", payload);
    if (interrupted()) {
        return;
    }
    if (finished != 0) {
        LOG_TRACE("UPDATE_CD Sync successfull\n");
    } else {
        LOG_ERROR("UPDATE_CD Sync not successfull\n");
    }
    remove_event(kQueueEmpty);
}

// A tag is tested against the types in this order.
std::array<Type, 5> g_types{{{"DTN", 1, push_tagged},
                             {"CDIL", 2, push_list},
                             {"NDNEV", 0, push_new_device},
                             {"B", 3, push_speed_test},
                             {"UPDAT", 4, push_update}}};

Type* find_type(std::string_view tag) {
    Type* type = std::ranges::find_if(g_types, [tag](const Type& known) { return tag.starts_with(known.prefix); });
    return type != g_types.end() ? type : nullptr;
}

void handle_event(const QueueHead& event, bool claimed) {
    LOG_NOTICE("New Payload Data in Queue...\n");
    LOG_TRACE("Event on ArrQueue %s\n", event.newestType.c_str());
    LOG_NOTICE("Event is:%s\n", event.type.c_str());
    const Type* type = find_type(event.type);
    LOG_TRACE("eventTypeNo is %d\n", type != nullptr ? type->number : kUnknown);
    if (type != nullptr) {
        type->push(*type, event.payload.c_str(), claimed);
    } else {
        // The event stays at the head of the queue and blocks later ones.
        LOG_NOTICE("No Case Matched!\n");
        pause_for(durations().unknownEvent);
    }
    LOG_TRACE("Free'd memory\n");
}

void* t_Handler_droDispatcher(void* /*argument*/) {
    LOG_NOTICE("Initing DROAgent Dispatcher!\n");
    LOG_TRACE("gets the claimState\n");
    bool claimed = false;
    for (;;) {
        try {
            const auto event = wait_for_event();
            if (!event || stop_requested()) {
                return nullptr;
            }
            // Read after waking, so a claim applies to the next event. A failed read keeps the last known state.
            claimed = read_bool(fields::claimState, claimed);
            handle_event(*event, claimed);
        } catch (const std::exception& failure) {
            LOG_ERROR("An event could not be pushed: %s\n", failure.what());
            pause_for(durations().unknownEvent);
        }
    }
}

}  // namespace

void after_push(const char* tag, AfterPush action) {
    if (Type* type = find_type(tag)) {
        type->after = action;
    }
}

int init_dispatcher() {
    if (!read_bool(fields::dispatcherSupport)) {
        LOG_NOTICE(
            "Dispatcher is Not support of the device! Will enable Dispatcher if Dispatcher support is enabled!\n");
        return 0;
    }
    if (pthread_mutex_init(&mutex_droDispatcher, nullptr) != 0) {
        LOG_ERROR("\n mutex init failed!!!\n");
    }
    wake_dispatcher(false);
    errno = start_thread(t_droDispatcher, t_Handler_droDispatcher, nullptr, false);
    if (errno != 0) {
        print_error("Failed to initialize DROAgent's Dispatcher\n");
        end_process(1);
    }
    g_running = true;
    LOG_TRACE("Successful to spawn thread for DROAgent Dispatcher\n");
    return 0;
}

void cancel_dispatcher_thread() {
    const bool supported = read_bool(fields::dispatcherSupport);
    LOG_NOTICE("Cancel Dispatcher Thread!\n");
    if (!supported) {
        LOG_NOTICE("Dispatcher is Not support of the device! No Need to perform Dispatcher Thread cancelation!!\n");
        return;
    }
    if (g_running) {
        request_stop();  // aborts a push in progress
        wake_dispatcher(true);
        pthread_join(t_droDispatcher, nullptr);
        pthread_mutex_destroy(&mutex_droDispatcher);
        g_running = false;
    }
    LOG_TRACE("Cancel Dispatcher Thread destroy the mutex\n");
}

}  // namespace dro
