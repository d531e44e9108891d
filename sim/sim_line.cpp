#include "sim_line.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <utility>

namespace sim {

namespace {

constexpr double DefaultTurnaround = 0.020;  // seconds, of a meter that names no delay
constexpr unsigned DefaultBaud = 9600;       // of a line never set, or set without speed bits

struct Speed {
    tcflag_t bits;
    unsigned baud;
};

constexpr Speed Speeds[] = {
    {B300, 300},   {B600, 600},     {B1200, 1200},   {B2400, 2400},   {B4800, 4800},
    {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200},
};

Micros micros(double seconds) {
    return static_cast<Micros>(std::llround(seconds * 1e6));
}

}  // namespace

unsigned baud_of(const termios& settings) {
    for (const Speed& speed : Speeds) {
        if (speed.bits == (settings.c_cflag & CBAUD)) return speed.baud;
    }
    return DefaultBaud;
}

std::optional<tcflag_t> speed_bits(unsigned baud) {
    for (const Speed& speed : Speeds) {
        if (speed.baud == baud) return speed.bits;
    }
    return std::nullopt;
}

void SimLine::flush(Micros now) {
    unsent_.clear();
    while (!arrivals_.empty() && arrivals_.front().at <= now) arrivals_.pop_front();
}

void SimLine::set(const termios& settings, Micros now) {
    flush(now);
    settings_ = settings;
    ++times_set_;
}

double SimLine::bit_seconds() const {
    return 1.0 / (settings_ ? baud_of(*settings_) : DefaultBaud);
}

Micros SimLine::duration(std::size_t bytes) const {
    const bool parity = settings_ && (settings_->c_cflag & PARENB) != 0;
    return micros(static_cast<double>(bytes) * (parity ? 11 : 10) * bit_seconds());
}

Micros SimLine::patience() const {
    return settings_ ? settings_->c_cc[VTIME] * Micros{100'000} : 0;
}

ssize_t SimLine::write(std::span<const std::uint8_t> bytes) {
    if (most_written_ == std::size_t{0}) {
        errno = EIO;
        return -1;
    }
    const auto taken = bytes.first(std::min(bytes.size(), most_written_.value_or(bytes.size())));
    unsent_.insert(unsent_.end(), taken.begin(), taken.end());
    return static_cast<ssize_t>(taken.size());
}

ByteVector SimLine::take_unsent() {
    return std::exchange(unsent_, {});
}

std::vector<SimLine::Arrival> SimLine::arrivals_of(const Answer& answer, Micros now) const {
    std::vector<Arrival> result;
    Micros start = now;
    bool first = true;
    for (const Burst& burst : answer) {
        const double delay = first && burst.delay_seconds == 0.0 ? DefaultTurnaround : burst.delay_seconds;
        start += micros(std::max(delay, 0.0));
        for (std::size_t i = 0; i < burst.bytes.size(); ++i) {
            result.push_back({start + duration(i + 1), burst.bytes[i]});
        }
        start += duration(burst.bytes.size());
        first = false;
    }
    return result;
}

std::vector<SimLine::Arrival> SimLine::collided(std::vector<Arrival> first, const std::vector<Arrival>& second) const {
    const Micros slot = duration(1) - 1;  // neighbours may be rounded together by a microsecond
    std::vector<Arrival> alone;
    for (const Arrival& late : second) {
        const auto met = std::find_if(first.begin(), first.end(),
                                      [&](const Arrival& early) { return std::abs(early.at - late.at) < slot; });
        if (met == first.end()) {
            alone.push_back(late);
        } else {
            met->byte ^= late.byte;
        }
    }
    std::vector<Arrival> result;
    std::merge(first.begin(), first.end(), alone.begin(), alone.end(), std::back_inserter(result),
               [](const Arrival& a, const Arrival& b) { return a.at < b.at; });
    return result;
}

void SimLine::deliver(std::span<const std::uint8_t> request, Micros now, std::time_t right_time) {
    std::vector<Arrival> heard;
    for (SimMeter* meter : meters_)
        heard = collided(std::move(heard), arrivals_of(meter->hear(request, right_time), now));
    for (const Arrival& arrival : heard) {
        const auto place = std::upper_bound(arrivals_.begin(), arrivals_.end(), arrival,
                                            [](const Arrival& a, const Arrival& b) { return a.at < b.at; });
        arrivals_.insert(place, arrival);
    }
}

void SimLine::put_noise(const ByteVector& bytes, Micros now) {
    const auto place =
        std::find_if(arrivals_.begin(), arrivals_.end(), [&](const Arrival& arrival) { return arrival.at > now; });
    std::deque<Arrival> noise;
    for (const std::uint8_t byte : bytes) noise.push_back({now, byte});
    arrivals_.insert(place, noise.begin(), noise.end());
}

std::size_t SimLine::read(std::span<std::uint8_t> into, Micros now) {
    std::size_t count = 0;
    while (count < into.size() && !arrivals_.empty() && arrivals_.front().at <= now) {
        into[count++] = arrivals_.front().byte;
        arrivals_.pop_front();
    }
    return count;
}

std::optional<Micros> SimLine::next_arrival() const {
    if (arrivals_.empty()) return std::nullopt;
    return arrivals_.front().at;
}

void SimLine::power_off() {
    unsent_.clear();
    arrivals_.clear();
}

}  // namespace sim
