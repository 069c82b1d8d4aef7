#include "timeline.h"

#include <array>
#include <ctime>

#include "json.h"

namespace lab {

namespace {

constexpr std::size_t kLineWidth = 150;  // of the "what" column; fits a wide terminal

const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::Good:
            return "\033[32m";
        case Tone::Bad:
            return "\033[31m";
        default:
            return "";
    }
}

const char* toneName(Tone tone) {
    return tone == Tone::Good ? "good" : "bad";
}

double milliseconds(std::chrono::microseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

class TerminalSink : public Sink {
 public:
    TerminalSink(std::FILE* out, bool colours) : out_(out), colours_(colours) {}

    void show(const Event& event) override {
        std::string who = nameOf(event.from);
        if (event.to != event.from) {
            who.append(" -> ").append(nameOf(event.to));
        }
        std::string what = printable(event.what);
        if (what.size() > kLineWidth) {
            what.resize(kLineWidth - 3);
            what += "...";
        }
        std::array<char, 32> took{};
        if (event.took) {
            std::snprintf(took.data(), took.size(), "  %.1f ms", milliseconds(*event.took));
        }
        const char* colour = colours_ ? colourOf(event.tone) : "";
        std::fprintf(out_, "%s  %-24s %s%s%s%s\n", clockText(event.at).c_str(), who.c_str(), colour, what.c_str(),
                     *colour != '\0' ? "\033[0m" : "", took.data());
        std::fflush(out_);
    }

 private:
    std::FILE* out_;
    bool colours_;
};

class JsonSink : public Sink {
 public:
    explicit JsonSink(std::FILE* out) : out_(out) {}

    void show(const Event& event) override {
        std::fprintf(out_, "%s\n", jsonOf(event).c_str());
        std::fflush(out_);
    }

 private:
    std::FILE* out_;
};

}  // namespace

const char* nameOf(Actor actor) {
    constexpr std::array kNames{"lab", "connector", "agent", "store", "device service", "Circle agent", "cloud"};
    return kNames.at(static_cast<std::size_t>(actor));
}

void Timeline::add(std::unique_ptr<Sink> sink) {
    const std::lock_guard lock(mutex_);
    sinks_.push_back(std::move(sink));
}

void Timeline::post(const Event& event) {
    const std::lock_guard lock(mutex_);
    for (const auto& sink : sinks_) {
        sink->show(event);
    }
}

void Timeline::note(Actor who, std::string what, Tone tone) {
    message(who, who, std::move(what), {}, tone);
}

void Timeline::message(Actor from, Actor to, std::string what, std::string body, Tone tone) {
    Event event;
    event.from = from;
    event.to = to;
    event.what = std::move(what);
    event.body = std::move(body);
    event.tone = tone;
    post(event);
}

std::string jsonOf(const Event& event) {
    Json line{{"time", numberFrom(secondsOf(event.at))},
              {"from", nameOf(event.from)},
              {"to", nameOf(event.to)},
              {"what", event.what}};
    if (!event.body.empty()) {
        line["body"] = event.body;
    }
    if (event.tone != Tone::Plain) {
        line["tone"] = toneName(event.tone);
    }
    if (event.took) {
        line["ms"] = numberFrom(milliseconds(*event.took));
    }
    if (event.exchange != 0) {
        line["exchange"] = event.exchange;
    }
    if (!event.head.empty()) {
        line["head"] = event.head;
    }
    return printJson(line);
}

std::unique_ptr<Sink> terminalSink(std::FILE* out, bool colours) {
    return std::make_unique<TerminalSink>(out, colours);
}

std::unique_ptr<Sink> jsonSink(std::FILE* out) {
    return std::make_unique<JsonSink>(out);
}

std::string printable(const std::string& text) {
    std::string line;
    line.reserve(text.size());
    for (const char byte : text) {
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned>(byte));
            line += escape.data();
        } else {
            line += byte;
        }
    }
    return line;
}

double secondsOf(std::chrono::system_clock::time_point at) {
    return std::chrono::duration<double>(at.time_since_epoch()).count();
}

std::string clockText(std::chrono::system_clock::time_point at) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(millis));
    return text.data();
}

}  // namespace lab
