#include "dro_utils_answer.h"

#include <strings.h>

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>

#include "dro_log.h"
#include "dro_utils_post.h"

namespace dro {
namespace {

constexpr std::size_t kUsualAnswer = 256;
constexpr std::size_t kMostHeaders = 64UL * 1024;
constexpr std::size_t kMostFraming = 1024UL * 1024;

bool same_name(std::string_view text, std::string_view name) {
    return text.size() == name.size() && strncasecmp(text.data(), name.data(), name.size()) == 0;
}

// The value of a header line that names the body's transfer codings, without blanks around it.
std::optional<std::string_view> transfer_codings(std::string_view line) {
    constexpr std::string_view kName = "Transfer-Encoding:";
    constexpr std::string_view kBlanks = " \t\r\n";
    if (!same_name(line.substr(0, kName.size()), kName)) {
        return std::nullopt;
    }
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks, kName.size()), line.size()));
    return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

}  // namespace

// No exception may pass through libcurl, so each callback handles a lack of memory. A result of 0 for bytes, or of 1
// for progress, fails the transfer.
void Answer::receive_from(CURL* easy) {
    easy_ = easy;
    try {
        body_.reserve(kUsualAnswer);
    } catch (const std::bad_alloc&) {
        LOG_ERROR("malloc() failed\n");
    }
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, on_body);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, on_header);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_DEBUGFUNCTION, on_raw);
    curl_easy_setopt(easy, CURLOPT_DEBUGDATA, this);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, on_progress);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
}

std::size_t Answer::on_body(const char* bytes, std::size_t size, std::size_t count, void* self) {
    std::string& body = static_cast<Answer*>(self)->body_;
    const std::size_t largest = request_rules().largestAnswer;
    if (largest != 0 && size * count > largest - body.size()) {
        LOG_ERROR("The answer is longer than %zu bytes\n", largest);
        return 0;
    }
    try {
        body.append(bytes, size * count);
    } catch (const std::bad_alloc&) {
        LOG_ERROR("realloc() failed\n");
        return 0;
    }
    return size * count;
}

std::size_t Answer::on_header(const char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Answer*>(self)->take_header({bytes, size * count}) ? size * count : 0;
}

bool Answer::take_header(std::string_view line) {
    headers_ += line.size();
    trailers_ += raw_ > 0 ? line.size() : 0;
    if (headers_ > kMostHeaders) {
        LOG_ERROR("The answer's headers are longer than %zu bytes\n", kMostHeaders);
        return false;
    }
    const auto codings = transfer_codings(line);
    if (!codings) {
        return true;
    }
    if (!same_name(*codings, "chunked")) {
        LOG_ERROR("The answer has a transfer coding other than chunked\n");
        return false;
    }
    // Makes libcurl report the raw body. Only here, because it would also format a report of each handshake.
    curl_easy_setopt(easy_, CURLOPT_VERBOSE, 1L);
    return true;
}

int Answer::on_raw(CURL* /*easy*/, curl_infotype type, char* /*bytes*/, std::size_t size, void* self) {
    static_cast<Answer*>(self)->raw_ += type == CURLINFO_DATA_IN ? size : 0;
    return 0;
}

// libcurl calls it after each series of reads, when everything that was read has been delivered.
int Answer::on_progress(void* self, curl_off_t /*toReceive*/, curl_off_t /*received*/, curl_off_t /*toSend*/,
                        curl_off_t /*sent*/) {
    const auto& answer = *static_cast<const Answer*>(self);
    if (answer.raw_ > answer.body_.size() + answer.trailers_ + kMostFraming) {
        LOG_ERROR("The answer has more than %zu bytes of chunk framing\n", kMostFraming);
        return 1;
    }
    return 0;
}

}  // namespace dro
