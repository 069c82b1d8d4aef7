#include "dro_utils_post.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "dro_log.h"
#include "dro_text.h"
#include "dro_utils_answer.h"
#include "dro_utils_bundle.h"
#include "dro_utils_server.h"
#include "dro_utils_transfer.h"
#include "provisioning.h"

namespace dro {
namespace {

constexpr long kConnectTimeoutSeconds = 3;

using EasyHandle = std::unique_ptr<CURL, Releases<curl_easy_cleanup>>;
using HeaderList = std::unique_ptr<curl_slist, Releases<curl_slist_free_all>>;

HeaderList make_headers(int environment) {
    const auto& key = environment == 1 ? provisioning::kProductionKey : provisioning::kNonProductionKey;
    FixedText<128> keyLine;
    keyLine.format("X-DreamFactoryAPIKey: %s%s", key[0].data(), key[1].data());
    HeaderList headers(curl_slist_append(nullptr, "Content-Type:application/json"));
    if (curl_slist* longer = curl_slist_append(headers.get(), keyLine.c_str())) {
        static_cast<void>(headers.release());
        headers.reset(longer);
    }
    return headers;
}

void set_options(CURL* easy, const char* url, const char* body, curl_slist* headers, const CaBundle& bundle) {
    curl_easy_setopt(easy, CURLOPT_URL, url);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    if (bundle.path != nullptr) {
        curl_easy_setopt(easy, CURLOPT_CAINFO, bundle.path);
        // libcurl caches parsed certificates only when no CA directory is set. A directory would also add trusted
        // issuers.
        curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    } else {
        curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
    }
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(std::strlen(body)));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(request_rules().limit.count()));
    // No other scheme, given or guessed, and no multiplexing: frames would be a further part of an answer to limit, and
    // a connection carries one request.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    // An aborted transfer does not wait for a silent name server.
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
    // Each request uses a new connection and a new name lookup, even on a reused multi handle.
    curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(easy, CURLOPT_DNS_CACHE_TIMEOUT, 0L);
}

// Copies the answer to the caller. An empty answer leaves `response` unchanged.
std::size_t hand_over(const std::string& answer, std::optional<std::string>& response) {
    if (answer.empty()) {
        return 0;
    }
    try {
        response = answer;
    } catch (const std::bad_alloc&) {
        LOG_ERROR("No memory available\n");
        response.reset();
    }
    return answer.size();
}

}  // namespace

RequestRules& request_rules() {
    static RequestRules rules{std::chrono::seconds(provisioning::kTransferLimit), provisioning::kRequireCaBundle,
                              provisioning::kLargestAnswer, std::chrono::seconds(provisioning::kTlsSessionLife)};
    return rules;
}

std::size_t curl_post(const char* url, const char* body, std::optional<std::string>& response, long* httpStatus) {
    long status = 0;
    if (httpStatus != nullptr) {
        *httpStatus = 0;
    }
    const int environment = check_server(url);
    if (environment == -1) {
        return 0;
    }
    Answer answer;
    const EasyHandle easy(curl_easy_init());
    if (!easy) {
        return 0;
    }
    answer.receive_from(easy.get());
    const HeaderList headers = make_headers(environment);
    LOG_TRACE(" URL is %s\n", url);
    const std::optional<CaBundle> bundle = choose_ca_bundle();
    if (!bundle) {
        return 0;
    }
    set_options(easy.get(), url, body, headers.get(), *bundle);

    const CURLcode result = run_transfer(easy.get(), *bundle);
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (httpStatus != nullptr) {
        *httpStatus = std::max(status, 0L);  // libcurl has -1 for an unreadable status line
    }
    LOG_TRACE("(DROagent) - res= 0x%x, HTTP status code = %ld\n", static_cast<unsigned>(result), status);
    LOG_TRACE("(Droagent) - curl_easy_strerror: %s\n", curl_easy_strerror(result));
    if (result != CURLE_OK) {
        FixedText<32> handle;  // the second field is the address of the transfer handle
        handle.format("%p", static_cast<const void*>(easy.get()));
        LOG_ERROR("curl_easy_perform() failed: %s::%s\n", curl_easy_strerror(result), handle.c_str());
        return 0;
    }
    return hand_over(answer.body(), response);
}

}  // namespace dro
