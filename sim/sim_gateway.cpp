#include "sim_gateway.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <utility>

#include "sim_line.h"

namespace sim {

namespace {

constexpr int FirstDescriptor = 100000;  // no real descriptor is that high

Micros micros(double seconds) {
    return static_cast<Micros>(std::llround(seconds * 1e6));
}

int failed(int error_number) {
    errno = error_number;
    return -1;
}

}  // namespace

std::time_t local_seconds(const std::string& local_time) {
    std::tm tm{};
    const int fields = std::sscanf(local_time.c_str(), "%d-%d-%d %d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                                   &tm.tm_hour, &tm.tm_min, &tm.tm_sec);
    if (fields < 5) throw std::invalid_argument("no local time: " + local_time);
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

struct SimGateway::Impl {
    struct Port {
        std::string device;
        SimLine* line;
    };

    Impl(const std::string& root, std::time_t start) : clock(start), storage(root + "/mnt/storage") {}

    /// The open port of a descriptor, or null.
    Port* port(int fd) {
        const auto found = ports.find(fd);
        return found == ports.end() ? nullptr : &found->second;
    }

    /// What was written leaves the port; the bytes are lost when the run ends on the way.
    void transmit(SimLine& line) {
        const ByteVector request = line.take_unsent();
        if (request.empty()) return;
        clock.advance_to(clock.now() + line.duration(request.size()));
        line.deliver(request, clock.now(), static_cast<std::time_t>(clock.right_time() / 1'000'000));
    }

    /// Waits until a byte has arrived, or the time is over.
    void wait_for_byte(const SimLine& line, Micros patience) {
        const Micros deadline = clock.now() + patience;
        while (clock.now() < deadline) {
            const Micros arrival = line.next_arrival().value_or(deadline);
            if (arrival <= clock.now()) return;
            // An action may put bytes on the line, so the wait stops at each.
            clock.advance_to(std::min({deadline, arrival, clock.next_action().value_or(deadline)}));
        }
    }

    void cut_power() {
        storage.lose(unsynced);
        ports.clear();
        for (auto& [device, line] : lines) line.power_off();
        throw PowerCut{};
    }

    SimClock clock;
    SimStorage storage;
    std::map<std::string, SimLine> lines;
    std::map<int, Port> ports;
    int next_descriptor = FirstDescriptor;
    std::vector<Exchange> exchanges;
    std::vector<unsigned> sleeps;
    int durable_writes = 0;
    int durable_error = 0;
    int writes_to_cut = 0;  // 0: the power stays on
    Micros line_setting = 0;
    Unsynced unsynced = Unsynced::Kept;
};

SimGateway::SimGateway(std::string root, std::time_t start) : impl_(std::make_unique<Impl>(root, start)) {
    root_folder = std::move(root);
}

SimGateway::~SimGateway() = default;

void SimGateway::set_service_address(std::string address) {
    service_url = std::move(address);
}

void SimGateway::connect(const std::string& device, SimMeter& meter) {
    impl_->lines[device].connect(meter);
}

void SimGateway::add_device(const std::string& device) {
    impl_->lines.try_emplace(device);
}

void SimGateway::disconnect_all(const std::string& device) {
    impl_->lines.at(device).disconnect_all();
}

void SimGateway::put_noise(const std::string& device, const ByteVector& bytes) {
    impl_->lines.at(device).put_noise(bytes, impl_->clock.now());
}

void SimGateway::limit_writes(const std::string& device, std::size_t most) {
    impl_->lines.at(device).limit_writes(most);
}

void SimGateway::let_line_setting_take(double seconds) {
    impl_->line_setting = micros(seconds);
}

void SimGateway::run_for(double seconds, const std::function<void()>& action) {
    struct Run {
        Run(SimClock& its_clock, Micros end) : clock(its_clock) { clock.set_end(end); }
        ~Run() { clock.set_end(std::nullopt); }
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;
        SimClock& clock;
    };
    const Run run(impl_->clock, impl_->clock.now() + micros(seconds));
    try {
        action();
    } catch (const RunEnded&) {
        return;  // as asked
    }
}

void SimGateway::run_until(const std::string& local_time, const std::function<void()>& action) {
    const Micros end = static_cast<Micros>(local_seconds(local_time)) * 1'000'000;
    run_for(static_cast<double>(end - impl_->clock.wall_time()) / 1e6, action);
}

void SimGateway::at(double seconds, std::function<void()> action) {
    impl_->clock.at(impl_->clock.now() + micros(seconds), std::move(action));
}

void SimGateway::step_clock(double seconds) {
    impl_->clock.step(micros(seconds));
}

void SimGateway::cut_power_at(int nth, Unsynced unsynced) {
    impl_->writes_to_cut = nth;
    impl_->unsynced = unsynced;
}

int SimGateway::durable_writes() const {
    return impl_->durable_writes;
}

void SimGateway::fail_durable(int error_number) {
    impl_->durable_error = error_number;
}

void SimGateway::settle_storage() {
    impl_->storage.settle();
}

const std::vector<SimGateway::Exchange>& SimGateway::exchanges() const {
    return impl_->exchanges;
}

void SimGateway::forget_exchanges() {
    impl_->exchanges.clear();
}

const std::vector<unsigned>& SimGateway::sleeps() const {
    return impl_->sleeps;
}

const termios& SimGateway::line_of(const std::string& device) const {
    const auto& settings = impl_->lines.at(device).settings();
    if (!settings) throw std::logic_error("line never set: " + device);
    return *settings;
}

int SimGateway::times_line_set(const std::string& device) const {
    return impl_->lines.at(device).times_set();
}

double SimGateway::seconds() const {
    return static_cast<double>(impl_->clock.wall_time()) / 1e6;
}

timeval SimGateway::time_of_day() {
    impl_->clock.tick();
    const Micros now = impl_->clock.wall_time();
    timeval result{};
    result.tv_sec = static_cast<std::time_t>(now / 1'000'000);
    result.tv_usec = static_cast<suseconds_t>(now % 1'000'000);
    return result;
}

std::int64_t SimGateway::steady_microseconds() {
    impl_->clock.tick();
    return impl_->clock.now();
}

void SimGateway::sleep(unsigned seconds) {
    impl_->sleeps.push_back(seconds);
    impl_->clock.advance_to(impl_->clock.now() + Micros{seconds} * 1'000'000);
    if (seconds == 0) impl_->clock.tick();
}

void SimGateway::sleep_nanoseconds(long nanoseconds) {
    const Micros rounded_up = (Micros{nanoseconds} + 999) / 1000;
    impl_->clock.advance_to(impl_->clock.now() + std::max<Micros>(rounded_up, 1));
}

int SimGateway::open_port(const char* device) {
    impl_->clock.tick();
    const auto found = impl_->lines.find(device);
    if (found == impl_->lines.end()) return failed(ENOENT);
    const int fd = impl_->next_descriptor++;
    impl_->ports[fd] = {found->first, &found->second};
    return fd;
}

int SimGateway::set_line(int fd, const termios& line) {
    if (impl_->line_setting > 0) impl_->clock.advance_to(impl_->clock.now() + impl_->line_setting);
    impl_->clock.tick();
    Impl::Port* port = impl_->port(fd);
    if (port == nullptr) return failed(EBADF);
    impl_->transmit(*port->line);
    port->line->set(line, impl_->clock.now());
    return 0;
}

ssize_t SimGateway::read_port(int fd, std::span<std::uint8_t> into) {
    Impl::Port* port = impl_->port(fd);
    if (port == nullptr) {
        impl_->clock.tick();
        return failed(EBADF);
    }
    impl_->transmit(*port->line);
    if (!into.empty()) impl_->wait_for_byte(*port->line, port->line->patience());
    const std::size_t count = port->line->read(into, impl_->clock.now());
    if (count == 0) impl_->clock.tick();
    return static_cast<ssize_t>(count);
}

ssize_t SimGateway::write_port(int fd, std::span<const std::uint8_t> bytes) {
    impl_->clock.tick();
    Impl::Port* port = impl_->port(fd);
    if (port == nullptr) return failed(EBADF);
    impl_->exchanges.push_back({port->device, seconds(), {bytes.begin(), bytes.end()}});
    return port->line->write(bytes);
}

int SimGateway::drain_port(int fd) {
    impl_->clock.tick();
    Impl::Port* port = impl_->port(fd);
    if (port == nullptr) return failed(EBADF);
    impl_->transmit(*port->line);
    return 0;
}

void SimGateway::flush_port(int fd) {
    impl_->clock.tick();
    if (Impl::Port* port = impl_->port(fd)) port->line->flush(impl_->clock.now());
}

int SimGateway::wait_readable(int fd, std::int64_t microseconds) {
    Impl::Port* port = impl_->port(fd);
    if (port == nullptr) {
        impl_->clock.tick();
        return failed(EBADF);
    }
    const Micros deadline = impl_->clock.now() + microseconds;
    impl_->transmit(*port->line);
    impl_->wait_for_byte(*port->line, std::max<Micros>(deadline - impl_->clock.now(), 0));
    const auto arrival = port->line->next_arrival();
    return arrival && *arrival <= impl_->clock.now() ? 1 : 0;
}

void SimGateway::end_exchange(int /*fd*/) {
    impl_->clock.tick();
}

int SimGateway::make_durable(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return -1;
    if (!S_ISREG(status.st_mode)) return failed(EINVAL);
    ++impl_->durable_writes;
    if (impl_->writes_to_cut > 0 && --impl_->writes_to_cut == 0) impl_->cut_power();
    if (impl_->durable_error != 0) return failed(impl_->durable_error);
    impl_->storage.made_durable(fd);
    return 0;
}

}  // namespace sim
