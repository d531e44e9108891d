#include "uplink/uplink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "contract/catalogue.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/gateway.h"
#include "uplink/courier.h"
#include "uplink/mqtt_sink.h"
#include "uplink/nats_sink.h"
#include "uplink/topics.h"
#include "uplink/value_messages.h"
#include "uplink/watch.h"

namespace uplink {

namespace {

constexpr std::int64_t Burst = 1000;        // milliseconds: a driver writes all of a record's files one after the other
constexpr std::int64_t EndPatience = 2000;  // for a broker, to hear that this ends
constexpr std::int64_t CheckPatience = 15'000;

std::int64_t steady_now() {
    return gateway().steady_microseconds() / 1000;
}

/// Until one of these is readable, or until a time of the steady clock; -1: without end.
void wait_for(std::array<int, 3> descriptors, std::int64_t due) {
    std::array<pollfd, 3> waiting{};
    for (std::size_t i = 0; i < waiting.size(); ++i)
        waiting[i] = {.fd = descriptors[i], .events = POLLIN, .revents = 0};
    const std::int64_t left = due < 0 ? -1 : std::clamp<std::int64_t>(due - steady_now(), 0, 86'400'000);
    ::poll(waiting.data(), waiting.size(), static_cast<int>(left));
}

/// Held as long as the program runs: two of them would send everything twice.
int lock_state(const std::string& folder) {
    const std::string path = folder + "/uplink.lock";
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) throw std::runtime_error(fmt::format("{}: {}", path, std::strerror(errno)));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        throw std::runtime_error(path + ": another heatmeter-uplink works with this folder");
    }
    return fd;
}

std::string mqtt_name(const Settings& settings) {
    return "heatmeter-" + subject_token(settings.gateway);
}

bool is_readable(int fd) {
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    return ::poll(&waiting, 1, 0) > 0;
}

class Uplink {
  public:
    Uplink(const Settings& settings, const std::string& state_folder) : state(state_folder) {
        if (state.was_broken()) {
            std::fputs("heatmeter-uplink: what was confirmed is not known any more: all is sent again\n", stderr);
        }
        std::random_device seeds;
        const auto add = [&](std::unique_ptr<Sink> sink, ValueMessages messages) {
            couriers.push_back(
                std::make_unique<Courier>(settings, std::move(sink), state, std::move(messages), seeds()));
        };
        if (settings.mqtt) {
            add(std::make_unique<MqttSink>(settings, mqtt_name(settings), mailbox, couriers.size()),
                [&settings](const auto& values, auto& messages) { append_value_messages(settings, values, messages); });
        }
        if (settings.nats) add(std::make_unique<NatsSink>(settings, mailbox, couriers.size()), nullptr);
        std::vector<std::string> used;
        if (settings.mqtt) used.emplace_back("mqtt");
        if (settings.nats) used.emplace_back("nats");
        state.use(used);
    }

    void run(int end) {
        take_news();
        std::int64_t news_due = -1;
        while (!is_readable(end)) {
            std::int64_t due = news_due;
            for (const auto& courier : couriers) {
                courier->act(steady_now());
                const std::int64_t next = courier->next_due();
                if (next >= 0 && (due < 0 || next < due)) due = next;
            }
            const std::int64_t look = news_due < 0 ? watch.next_look() : -1;
            if (look >= 0 && (due < 0 || look < due)) due = look;
            // Between the first change and the look at it nobody is woken by the others.
            wait_for({end, mailbox.descriptor(), news_due < 0 ? watch.descriptor() : -1}, due);
            if (news_due < 0 && (is_readable(watch.descriptor()) || (look >= 0 && steady_now() >= look))) {
                news_due = steady_now() + Burst;
            }
            if (news_due >= 0 && steady_now() >= news_due) {
                news_due = -1;
                take_news();
            }
            take_events();
        }
        finish();
    }

  private:
    void take_news() {
        const Watch::News news = watch.take();
        if (watch.next_look() >= 0 && !std::exchange(has_told, true)) {
            std::fputs(
                "heatmeter-uplink: more folders than the system looks after (fs.inotify.max_user_watches): what "
                "changes in some is found with other changes, or after 15 minutes\n",
                stderr);
        }
        for (const auto& courier : couriers) {
            for (const auto& [uuid, system] : news.archives) courier->look_at_records(uuid, system);
            for (const auto& [uuid, system] : news.items) courier->look_at_values(uuid, system);
        }
    }

    void take_events() {
        for (const Event& event : mailbox.take()) couriers[event.sink]->take(event, steady_now());
    }

    void finish() {
        for (const auto& courier : couriers) courier->finish();
        const auto is_ended = [](const auto& courier) { return courier->is_ended(); };
        for (const std::int64_t due = steady_now() + EndPatience;
             steady_now() < due && !std::ranges::all_of(couriers, is_ended);) {
            wait_for({-1, mailbox.descriptor(), -1}, due);
            take_events();
        }
        for (const auto& courier : couriers) courier->finish();
    }

    Mailbox mailbox;
    State state;
    Watch watch;
    bool has_told = false;
    std::vector<std::unique_ptr<Courier>> couriers;
};

void say(const char* word, const std::string& text) {
    std::fputs(fmt::format("{:8}{}\n", word, contract::for_terminal(text)).c_str(), stdout);
}

/// Whether each archive file may be read.
bool check_archives() {
    bool is_well = true;
    for (const std::string& uuid : contract::meters()) {
        for (int system = 1; system <= contract::Systems; ++system) {
            const std::string folder = contract::archive_folder(uuid, system, true);
            for (const std::string& name : contract::names_in(folder)) {
                if (contract::find_archive(name) == nullptr || contract::open_for_reading(folder + '/' + name))
                    continue;
                say("error", fmt::format("{}/{}: cannot be read", folder, name));
                is_well = false;
            }
        }
    }
    return is_well;
}

/// Whether a broker takes a connection, as the program itself would make it.
bool check_sink(Sink& sink, Mailbox& mailbox) {
    sink.connect();
    bool is_connected = false;
    for (const std::int64_t due = steady_now() + CheckPatience; steady_now() < due;) {
        wait_for({-1, mailbox.descriptor(), -1}, due);
        for (const Event& event : mailbox.take()) {
            if (event.what == Event::What::Connected) {
                say("ok",
                    fmt::format("{}: connected{}{}", sink.name(), event.reason.empty() ? "" : "; ", event.reason));
                sink.end(true);
                is_connected = true;
            } else if (is_connected) {
                return true;
            }
            if (event.what == Event::What::Lost) {
                say("error", fmt::format("{}: {}", sink.name(), event.reason));
                return false;
            }
        }
    }
    if (!is_connected) say("error", fmt::format("{}: it does not answer", sink.name()));
    return is_connected;
}

}  // namespace

void run(const Settings& settings, const std::string& state_folder, int end) {
    [[maybe_unused]] const int lock = lock_state(state_folder);
    // Never taken down: a thread of a library may wait for an answer, and the process ends here anyway.
    auto* const whole = new Uplink(settings, state_folder);
    whole->run(end);
}

bool check(const Settings& settings, const std::string& state_folder) {
    bool is_well = ::access(state_folder.c_str(), W_OK | X_OK) == 0;
    say(is_well ? "ok" : "error",
        fmt::format("{}: {}", state_folder, is_well ? "what is confirmed can be kept here" : std::strerror(errno)));
    is_well = check_archives() && is_well;
    static Mailbox& mailbox = *new Mailbox;  // as long as the threads of the sinks
    if (settings.mqtt) {
        // Under another name: two of the same would end each other's connections.
        is_well =
            check_sink(*new MqttSink(settings, mqtt_name(settings) + "-check", mailbox, 0, true), mailbox) && is_well;
        mailbox.take();
    }
    if (settings.nats) is_well = check_sink(*new NatsSink(settings, mailbox, 1, true), mailbox) && is_well;
    return is_well;
}

}  // namespace uplink
