// timeline.h - what happens in the lab, as events that any number of sinks show. Any thread may post.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace lab {

enum class Actor { Lab, Connector, Agent, Store, DeviceService, CircleAgent, Cloud };
const char* nameOf(Actor actor);

enum class Tone { Plain, Good, Bad };

struct Event {
    Actor from = Actor::Lab;
    Actor to = Actor::Lab;  // the same as `from` for what somebody does alone
    std::string what;
    std::string body;  // the whole message where `what` is a summary; may be empty
    Tone tone = Tone::Plain;
    std::optional<std::chrono::microseconds> took;
    std::uint64_t exchange = 0;  // joins a request to the cloud with its answer; 0 for what is neither
    std::string head;            // of a request: its first line and the headers that matter, a line each
    std::chrono::system_clock::time_point at = std::chrono::system_clock::now();
};

class Sink {
 public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;
    // Called by one thread at a time.
    virtual void show(const Event& event) = 0;
};

class Timeline {
 public:
    void add(std::unique_ptr<Sink> sink);
    void post(const Event& event);
    // A message from one to another, which happens now.
    void tell(Actor from, Actor to, std::string what, std::string body = {}, Tone tone = Tone::Plain);
    // What an actor does by itself.
    void note(Actor who, std::string what, Tone tone = Tone::Plain);

 private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<Sink>> sinks_;
};

// One readable line an event: time, who -> whom, what, how long it took. Long texts are cut to about a line.
std::unique_ptr<Sink> terminalSink(std::FILE* out, bool colours);

// One JSON object a line, as jsonOf() gives it.
std::unique_ptr<Sink> jsonSink(std::FILE* out);

// An event as a JSON object: time, from, to, what, and where they apply body, tone, ms, exchange and head.
std::string jsonOf(const Event& event);

// Control bytes of a text from outside written as \xNN, so that it stays on its line.
std::string printable(const std::string& text);

// Seconds since the epoch, with their fraction.
double secondsOf(std::chrono::system_clock::time_point at);

// A time as HH:MM:SS.mmm in local time.
std::string clockText(std::chrono::system_clock::time_point at);

}  // namespace lab
