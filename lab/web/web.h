// web.h - the lab as a web page: HTTP on 127.0.0.1 only, with server-sent events for updates.
//
// Every request except for the page's static files needs the key. The key is in the fragment of the page's URL, which
// browsers do not send. The server refuses a request with a different Host header (DNS rebinding), a request without
// the key, and a POST with a different Origin. Other users of the machine and other sites in the browser therefore
// cannot see or control the lab.
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

// Created and destroyed by one thread.
class WebPage {
 public:
    // Listens on `port`, or on any free port for 0. The page adds the store's values to `feed`; add a feedSink to the
    // timeline for its events. Throws std::runtime_error, also when the port is in use.
    WebPage(Lab& lab, std::shared_ptr<WebFeed> feed, int port);
    // Ends the feed. Waits for running operations.
    ~WebPage();
    WebPage(const WebPage&) = delete;
    WebPage& operator=(const WebPage&) = delete;

    // The page's URL, including the key.
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
    const std::string description_;  // static data for the page: commands and tables
    WebStore store_;
    std::atomic<int> readers_ = 0;
    std::unique_ptr<httplib::Server> server_;
    std::jthread thread_;
};

}  // namespace lab
