// timeline.h - the lab's events and the sinks that show them. Any thread may post.
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
    Actor to = Actor::Lab;  // same as `from` for an actor's own action
    std::string what;
    std::string body;  // the full message when `what` is a summary; may be empty
    Tone tone = Tone::Plain;
    std::optional<std::chrono::microseconds> took;
    std::uint64_t exchange = 0;  // links a cloud request to its response; 0 for other events
    std::string head;            // for requests: the request line and the relevant headers, one per line
    std::chrono::system_clock::time_point at = std::chrono::system_clock::now();
};

class Sink {
 public:
    Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    virtual ~Sink() = default;
    // Calls are serialised.
    virtual void show(const Event& event) = 0;
};

class Timeline {
 public:
    void add(std::unique_ptr<Sink> sink);
    void post(const Event& event);
    // Posts a message between two actors, time-stamped now.
    void message(Actor from, Actor to, std::string what, std::string body = {}, Tone tone = Tone::Plain);
    // Posts an action of a single actor.
    void note(Actor who, std::string what, Tone tone = Tone::Plain);

 private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<Sink>> sinks_;
};

// Prints one readable line per event: time, from -> to, text, duration. Long texts are cut to about one line.
std::unique_ptr<Sink> terminalSink(std::FILE* out, bool colours);

// Prints one JSON object per line, as returned by jsonOf().
std::unique_ptr<Sink> jsonSink(std::FILE* out);

// An event as a JSON object: time, from, to, what and, where they apply, body, tone, ms, exchange and head.
std::string jsonOf(const Event& event);

// Escapes control bytes of external text as \xNN, so that it stays on one line.
std::string printable(const std::string& text);

// Seconds since the epoch, with the fraction.
double secondsOf(std::chrono::system_clock::time_point at);

// Local time as HH:MM:SS.mmm.
std::string clockText(std::chrono::system_clock::time_point at);

}  // namespace lab
