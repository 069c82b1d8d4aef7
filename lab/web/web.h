// web.h - the lab as a page in a browser of this machine: HTTP on 127.0.0.1 only, with server-sent events for what is
// new.
//
// Whoever acts must hold the key, which is in the part of the page's address that browsers keep to themselves. So
// neither another user of the machine nor another site in the same browser sees or does anything: a request with
// another Host (a name that was made to point here), without the key, or a POST with another Origin is refused.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "lab.h"
#include "web_feed.h"
#include "web_store.h"

namespace httplib {
struct Request;
struct Response;
class Server;
}  // namespace httplib

namespace lab {

constexpr int kWebPort = 8466;

// Made and destroyed by one thread.
class WebPage {
 public:
    // Listens on the port, or on any for 0. `feed` gets the store's values; the timeline's events come from a feedSink.
    // Throws std::runtime_error, also when the port is taken.
    WebPage(Lab& lab, std::shared_ptr<WebFeed> feed, int port);
    // Ends the feed. Waits for operations that are being done.
    ~WebPage();
    WebPage(const WebPage&) = delete;
    WebPage& operator=(const WebPage&) = delete;

    // What to open, with the key.
    std::string address() const;

 private:
    const char* refusal(const httplib::Request& request) const;
    void route();
    void sendEvents(const httplib::Request& request, httplib::Response& response);
    void listen(int port);

    Lab& lab_;
    const std::shared_ptr<WebFeed> feed_;
    int port_ = 0;
    const std::string key_;
    const std::string description_;  // what the page needs to know once: commands and tables
    WebStore store_;
    std::atomic<int> readers_ = 0;
    std::unique_ptr<httplib::Server> server_;
    std::jthread thread_;
};

}  // namespace lab
