// The bytes of the cloud's answer, through libcurl: status lines, headers, chunks, trailers, and a connection that ends
// after any of them. The pieces of the input are sent one by one, each when the transfer waits. NUL and a byte N end a
// piece, which is then sent N * N times; N = 0 is a NUL within the piece.
#include <curl/curl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "dro_utils_post.h"
#include "input.h"

// The linker's --wrap option fixes the names: the agent's calls of NAME go to __wrap_NAME, and __real_NAME is NAME.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
CURLMcode __real_curl_multi_add_handle(CURLM* multi, CURL* easy);
CURLMcode __wrap_curl_multi_add_handle(CURLM* multi, CURL* easy);
CURLMcode __real_curl_multi_poll(CURLM* multi, curl_waitfd* waits, unsigned count, int timeout, int* ready);
CURLMcode __wrap_curl_multi_poll(CURLM* multi, curl_waitfd* waits, unsigned count, int timeout, int* ready);
// Null in a build without the address sanitizer.
__attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();
}

namespace {

constexpr std::size_t kLargestAnswer = 64UL * 1024;
// The limits of all parts of an answer, and room for what the connection still holds when one is reached.
constexpr std::size_t kMostTaken = kLargestAnswer + 64UL * 1024 + 1024UL * 1024 + 1024UL * 1024;
constexpr std::size_t kMostMemory = 8UL * 1024 * 1024;
constexpr std::size_t kAtOnce = 64UL * 1024;

std::size_t allocated() {
    return __sanitizer_get_current_allocated_bytes != nullptr ? __sanitizer_get_current_allocated_bytes() : 0;
}

struct Piece {
    std::string bytes;
    int times = 1;
};

// The pieces of an input, none of them empty.
std::vector<Piece> pieces(std::string_view input) {
    std::vector<Piece> all(1);
    for (std::size_t i = 0; i < input.size(); ++i) {
        const bool ends = input[i] == '\0' && i + 1 < input.size();
        const auto count = ends ? static_cast<unsigned char>(input[++i]) : 0;
        if (count == 0) {
            all.back().bytes += input[i];
        } else {
            all.back().times = count * count;
            all.emplace_back();
        }
    }
    std::erase_if(all, [](const Piece& piece) { return piece.bytes.empty(); });
    return all;
}

// The cloud, on a Unix socket without TLS. Thousands of TCP connections would exhaust the ports.
class Cloud {
 public:
    Cloud() : listening_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socklen_t length = sizeof address.sun_family;  // no path: the kernel assigns an abstract name
        auto* any = reinterpret_cast<sockaddr*>(&address);
        fuzz::require(bind(listening_, any, length) == 0 && listen(listening_, 1) == 0);
        length = sizeof address;
        fuzz::require(getsockname(listening_, any, &length) == 0);
        name_.assign(address.sun_path + 1, length - sizeof address.sun_family - 1);
    }
    Cloud(const Cloud&) = delete;
    Cloud& operator=(const Cloud&) = delete;
    ~Cloud() { close(listening_); }

    const char* name() const { return name_.c_str(); }

    // Takes the answer to the next request.
    void prepare(std::string_view input) {
        pieces_ = pieces(input);
        next_ = sent_ = 0;
        waiting_.clear();
        // After a header line and a NUL, libcurl 7.88 drops the rest of what it has read.
        bounded_ = std::none_of(pieces_.begin(), pieces_.end(),
                                [](const Piece& piece) { return piece.bytes.find('\0') != std::string::npos; });
        allocatedBefore_ = allocated();
    }

    // Sends as much of a piece as the connection takes, and ends the answer after the last.
    void send_next() {
        fuzz::require(allocated() <= allocatedBefore_ + kMostMemory);
        if (end_ < 0) {
            end_ = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        }
        if (waiting_.empty() && next_ == pieces_.size()) {
            shutdown(end_, SHUT_WR);
            return;
        }
        if (waiting_.empty()) {
            load();
        }
        const auto sent = std::max<ssize_t>(send(end_, waiting_.data(), waiting_.size(), MSG_NOSIGNAL), 0);
        waiting_.erase(0, static_cast<std::size_t>(sent));
        sent_ += static_cast<std::size_t>(sent);
        fuzz::require(sent_ <= kMostTaken || !bounded_);
    }

    // Ends the connection. A request that was not sent leaves none.
    void hang_up() {
        if (end_ >= 0) {
            close(std::exchange(end_, -1));
        }
    }

 private:
    // Fills `waiting_` from the next piece.
    void load() {
        Piece& piece = pieces_[next_];
        for (; piece.times > 0 && waiting_.size() < kAtOnce; --piece.times) {
            waiting_ += piece.bytes;
        }
        next_ += piece.times == 0 ? 1 : 0;
    }

    int listening_;
    std::string name_;
    int end_ = -1;
    std::vector<Piece> pieces_;
    std::size_t next_ = 0;
    std::string waiting_;  // to be sent
    std::size_t sent_ = 0;
    bool bounded_ = true;  // whether kMostTaken applies
    std::size_t allocatedBefore_ = 0;
};

Cloud& cloud() {
    static Cloud only;
    return only;
}

}  // namespace

// Only the connection differs from what the agent has set.
CURLMcode __wrap_curl_multi_add_handle(CURLM* multi, CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(easy, CURLOPT_ABSTRACT_UNIX_SOCKET, cloud().name());
    return __real_curl_multi_add_handle(multi, easy);
}

CURLMcode __wrap_curl_multi_poll(CURLM* multi, curl_waitfd* waits, unsigned count, int timeout, int* ready) {
    cloud().send_next();
    return __real_curl_multi_poll(multi, waits, count, timeout, ready);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    dro::request_rules().largestAnswer = kLargestAnswer;
    cloud().prepare(fuzz::bytes(data, size));
    std::optional<std::string> answer;
    long status = -1;
    const std::size_t length = dro::curl_post("http://qa.dro.localhost/x/", "{}", answer, &status);
    cloud().hang_up();
    fuzz::require(length <= kLargestAnswer && (length == 0 ? !answer : answer && answer->size() == length));
    fuzz::require(status >= 0);
    return 0;
}
