#include "dro_utils_transfer.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "dro_stop.h"
#include "dro_sync.h"
#include "dro_utils_post.h"

namespace dro {
namespace {

using Clock = std::chrono::steady_clock;
using MultiHandle = std::unique_ptr<CURLM, Releases<curl_multi_cleanup>>;
using ShareHandle = std::unique_ptr<CURLSH, Releases<curl_share_cleanup>>;

constexpr std::size_t kIdleTransports = 2;  // few threads post at once, and each kept transport holds a parsed bundle

// Failed transfers of all threads. A failure invalidates every session that began before it.
std::atomic<unsigned> g_failures;

// The TLS sessions with the cloud that may be resumed. A resumed session relies on the certificate check of its first
// handshake. Discarding it makes the next handshake a full one.
class TlsSessions {
 public:
    // Lets `easy` resume a session and store a new one. Without a handle (disabled or out of memory), every handshake
    // is full.
    void join(CURL* easy) {
        if (handle_ && (failures_ != g_failures || Clock::now() - began_ >= request_rules().sessionLife)) {
            handle_.reset();
        }
        if (!handle_ && request_rules().sessionLife.count() > 0) {
            begin();
        }
        curl_easy_setopt(easy, CURLOPT_SHARE, handle_.get());
        // Newer libcurl versions would otherwise cache sessions in the multi handle without expiry.
        curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, handle_ ? 1L : 0L);
    }

    static void leave(CURL* easy) { curl_easy_setopt(easy, CURLOPT_SHARE, nullptr); }

 private:
    void begin() {
        began_ = Clock::now();
        failures_ = g_failures;
        handle_.reset(curl_share_init());
        if (curl_share_setopt(handle_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION) != CURLSHE_OK) {
            handle_.reset();
        }
    }

    ShareHandle handle_;
    Clock::time_point began_;
    unsigned failures_ = 0;
};

// State kept between transfers, used by one at a time. The multi handle caches parsed certificates, which are most of
// the work of a request. A transport made for another bundle is discarded.
struct Transport {
    MultiHandle multi;
    TlsSessions sessions;
    CaBundle bundle;
};

class Transports {
 public:
    Transport take(const CaBundle& bundle) {
        Transport last;
        do {
            last = take_idle();
        } while (last.multi && last.bundle != bundle);
        if (!last.multi) {
            last.multi.reset(curl_multi_init());
            last.bundle = bundle;
        }
        return last;
    }

    void give_back(Transport transport) {
        const MutexLock lock(mutex_);
        if (transport.multi && idle_.size() < kIdleTransports) {
            idle_.push_back(std::move(transport));
        }
    }

 private:
    Transport take_idle() {
        const MutexLock lock(mutex_);
        if (idle_.empty()) {
            return {};
        }
        Transport last = std::move(idle_.back());
        idle_.pop_back();
        return last;
    }

    Mutex mutex_;
    std::vector<Transport> idle_ DRO_GUARDED_BY(mutex_);
};

Transports& transports() {
    static Immortal<Transports> kept;
    return *kept;
}

// Effectively unlimited: the poll ends when the transfer progresses or a stop is requested.
constexpr int kLongestPollMs = 3'600'000;

CURLcode finished_result(CURLM* multi) {
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(multi, &left);
    return message != nullptr && message->msg == CURLMSG_DONE ? message->data.result : CURLE_GOT_NOTHING;
}

// The stop descriptors that a transfer polls beside its own connection.
struct StopWaits {
    std::array<curl_waitfd, 2> waits{};
    unsigned count = 0;

    StopWaits() {
        for (const pollfd& descriptor : stop_descriptors()) {
            if (descriptor.fd >= 0) {
                waits[count++] = {descriptor.fd, CURL_WAIT_POLLIN, 0};
            }
        }
    }

    bool stopped() const { return waits[0].revents != 0 || waits[1].revents != 0; }
};

// Runs the only transfer of `multi` to its end.
CURLcode drive(CURLM* multi) {
    StopWaits stop;
    for (;;) {
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) {
            return CURLE_FAILED_INIT;
        }
        if (running == 0) {
            return finished_result(multi);
        }
        curl_multi_poll(multi, stop.waits.data(), stop.count, kLongestPollMs, nullptr);
        if (stop.stopped()) {
            request_stop();
            return CURLE_ABORTED_BY_CALLBACK;
        }
    }
}

}  // namespace

CURLcode run_transfer(CURL* easy, const CaBundle& bundle) {
    Transport transport = transports().take(bundle);
    CURLcode result = CURLE_FAILED_INIT;
    transport.sessions.join(easy);
    if (transport.multi && curl_multi_add_handle(transport.multi.get(), easy) == CURLM_OK) {
        result = drive(transport.multi.get());
        curl_multi_remove_handle(transport.multi.get(), easy);
    }
    TlsSessions::leave(easy);
    if (result != CURLE_OK) {
        ++g_failures;  // whatever the cause, the next attempt makes a full handshake
    }
    transports().give_back(std::move(transport));
    return result;
}

}  // namespace dro
