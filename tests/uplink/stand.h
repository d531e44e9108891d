#pragma once
// A courier with a broker of the test's own, in no time and in no thread.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include "support/scene.h"
#include "uplink/courier.h"

/// "m1/A1 1709377200 192 12.5", as it came.
inline std::vector<std::string> lines_of(const std::string& body) {
    Json::Value whole;
    std::istringstream in(body);
    std::string fault;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &whole, &fault)) << fault << body;
    std::vector<std::string> lines;
    for (const Json::Value& line : whole["lines"]) {
        lines.push_back(whole["meter"].asString() + '/' + line[0].asString() + ' ' + std::to_string(line[1].asInt64()) +
                        ' ' + std::to_string(line[2].asInt()) + ' ' + line[3].asString());
    }
    return lines;
}

/// What a stream holds, whatever happens to those who fill it.
struct Stream {
    std::vector<uplink::Message> messages;
    std::map<std::string, std::uint64_t> ids;
    bool remembers_ids = true;

    uplink::Event take(std::uint64_t number, const uplink::Message& message) {
        uplink::Event event{.what = uplink::Event::What::Confirmed, .number = number};
        const auto known = ids.find(message.id);
        event.was_there = remembers_ids && known != ids.end();
        if (event.was_there) {
            event.sequence = known->second;
            return event;
        }
        messages.push_back(message);
        event.sequence = ids[message.id] = messages.size();
        return event;
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        for (const uplink::Message& message : messages) {
            for (std::string& line : lines_of(message.body)) all.push_back(std::move(line));
        }
        return all;
    }
};

class TestSink : public uplink::Sink {
  public:
    const char* name() const override { return "nats"; }
    void connect() override { ++connects; }
    void send(std::uint64_t number, uplink::Message message) override { sent.emplace_back(number, std::move(message)); }
    void end(bool) override { ++ends; }
    std::string record_topic(const std::string& uuid, int system, std::string_view kind) const override {
        return uuid + '.' + std::to_string(system) + '.' + std::string(kind);
    }

    int connects = 0;
    int ends = 0;
    std::vector<std::pair<std::uint64_t, uplink::Message>> sent;
};

/// A folder of this machine, as SQLite wants it.
class Folder {
  public:
    Folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "uplink-XXXXXX";
        path = ::mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path;
};

inline uplink::Settings plain_settings() {
    uplink::Settings settings;
    settings.gateway = "g";
    return settings;
}

/// From a start of the program to its end, which may come at any moment.
class Life {
  public:
    Life(uplink::State& state, const uplink::Settings& settings = plain_settings(),
         const uplink::ValueMessages& values = nullptr)
        : own(settings) {
        auto made = std::make_unique<TestSink>();
        sink = made.get();
        courier = std::make_unique<uplink::Courier>(own, std::move(made), state, values, 1);
    }

    void connect() {
        courier->act(now);
        courier->take({.what = uplink::Event::What::Connected}, now);
    }
    /// Takes what was sent into the stream, and confirms it; how many messages there were.
    std::size_t pass(Stream& stream) {
        courier->act(now);
        const auto sent = std::exchange(sink->sent, {});
        for (const auto& [number, message] : sent) courier->take(stream.take(number, message), now);
        now += 1100;  // what was confirmed is kept now
        courier->act(now);
        return sent.size();
    }
    void pass_all(Stream& stream) {
        while (pass(stream) != 0 || !sink->sent.empty()) {
        }
    }

    std::int64_t now = 1;
    TestSink* sink;
    std::unique_ptr<uplink::Courier> courier;

  private:
    uplink::Settings own;
};

/// Lines of hours, as the daemon writes them.
inline std::string hour_lines(int first, int count, int value = 0) {
    std::string text;
    for (int hour = first; hour < first + count; ++hour) {
        text += std::to_string(1709377200 + 3600 * hour) + ",192," + std::to_string(value + hour) + ".000000\n";
    }
    return text;
}
