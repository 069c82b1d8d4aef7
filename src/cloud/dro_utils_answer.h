// dro_utils_answer.h - the answer of one transfer, limited in every part. Used only by curl_post, on one thread.
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace dro {

// Collects the body. Each of these fails the transfer, with a log line:
// - a body above request_rules().largestAnswer
// - more than 64 KiB of header lines and trailers, those of interim responses included
// - more than 1 MiB of chunk framing: chunk sizes, their extensions and line ends
// - a transfer coding other than chunked; libcurl would decode it with up to 128 MiB per coding
class Answer {
 public:
    Answer() = default;
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    // Sets `easy` up to deliver the answer of its one transfer here. This object must outlive `easy`.
    void receive_from(CURL* easy);

    const std::string& body() const { return body_; }

 private:
    static std::size_t on_body(const char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t on_header(const char* bytes, std::size_t size, std::size_t count, void* self);
    static int on_raw(CURL* easy, curl_infotype type, char* bytes, std::size_t size, void* self);
    static int on_progress(void* self, curl_off_t toReceive, curl_off_t received, curl_off_t toSend, curl_off_t sent);
    bool take_header(std::string_view line);

    CURL* easy_ = nullptr;
    std::string body_;
    std::size_t headers_ = 0;   // bytes of header lines and trailers
    std::size_t trailers_ = 0;  // the trailers among them
    std::size_t raw_ = 0;       // bytes of a chunked body as received: chunks, framing and trailers
};

}  // namespace dro
