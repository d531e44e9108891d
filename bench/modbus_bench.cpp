// Reading registers over Modbus, ours against libmodbus: the same questions to the same simulated meter over the same
// pseudo-terminal, turn by turn.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <modbus.h>

#include "driver/line_settings.h"
#include "drivers/vist_modbus/modbus_exchange.h"
#include "ground.h"
#include "modbus_vist_meter.h"
#include "pty_meter.h"
#include "ratio.h"

namespace {

constexpr int Speed9600 = 3;  // speed code
constexpr int NoParity = 2;   // parity code
constexpr int Slave = 17;
constexpr int Registers = 99;
constexpr int AnswerMilliseconds = 600;
constexpr int ReadsPerTurn = 50;
constexpr std::size_t RequestBytes = 8;
constexpr std::size_t AnswerBytes = 512;

/// What only a daemon on its gateway does is left out: clearing the line before a question, telling the serial driver
/// that an answer is over, the time that a LED flashes. What remains is question, answer, and what is made of it.
class BareGateway final : public DeskGateway {
  public:
    using DeskGateway::DeskGateway;
    void flush_port(int /*fd*/) override {}
    void end_exchange(int /*fd*/) override {}
    void sleep_nanoseconds(long /*nanoseconds*/) override {}
};

/// The daemon's own machine. It has no LEDs, so nothing waits for a flash.
struct WholeGateway {
    explicit WholeGateway(const Ground& /*ground*/) { set_gateway(nullptr); }
};

/// Our questions for holding registers go to standard output too: nowhere, as long as this lives.
class QuietOutput {
  public:
    QuietOutput() : earlier_(::dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~QuietOutput() {
        std::fflush(stdout);
        ::dup2(earlier_, STDOUT_FILENO);
        ::close(earlier_);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

  private:
    int earlier_;
};

class Libmodbus {
  public:
    explicit Libmodbus(const std::string& device)
        : context_(modbus_new_rtu(device.c_str(), 9600, 'N', 8, 1), &modbus_free) {
        modbus_set_slave(context_.get(), Slave);
        if (modbus_connect(context_.get()) != 0) throw std::runtime_error(modbus_strerror(errno));
    }
    ~Libmodbus() { modbus_close(context_.get()); }
    Libmodbus(const Libmodbus&) = delete;
    Libmodbus& operator=(const Libmodbus&) = delete;

    void read() {
        std::array<std::uint16_t, Registers> registers{};
        if (modbus_read_registers(context_.get(), 0, Registers, registers.data()) != Registers) {
            throw std::runtime_error("libmodbus got no answer");
        }
        benchmark::DoNotOptimize(registers);
    }

  private:
    std::unique_ptr<modbus_t, void (*)(modbus_t*)> context_;
};

void read_registers(int fd) {
    std::array<std::uint8_t, AnswerBytes> answer{};
    if (read_holding(fd, answer, Slave, 0, Registers - 1, AnswerMilliseconds) != 2 + 2 * Registers) {
        throw std::runtime_error("we got no answer");
    }
    benchmark::DoNotOptimize(answer);
}

/// How long a read takes by `timed`, on a bare gateway or on a whole one.
template <typename Machine>
void read_side_by_side(benchmark::State& state, const char* name, double (*timed)(int, const std::function<void()>&),
                       const Wanted& wanted) {
    const Ground ground(Ground::InMemory);
    const Machine machine(ground);
    sim::ModbusVistMeter meter({.serial = Slave});
    const PtyMeter line(meter, RequestBytes);
    Libmodbus libmodbus(line.device());
    const int fd = open_line(line.device(), LineOfVistModbus, Speed9600, NoParity);
    const QuietOutput quiet;
    compare(
        state, name, [&] { return timed(ReadsPerTurn, [fd] { read_registers(fd); }); }, "libmodbus",
        [&] { return timed(ReadsPerTurn, [&libmodbus] { libmodbus.read(); }); }, wanted);
    ::close(fd);
}

const Wanted AsFast = {1.03, "as long, but for 3 % of noise"};  // so much do runs of one and the same differ
const Wanted Reported = {1e9, "reported"};                      // told, and not wanted to be anything

void wall(benchmark::State& state) {
    read_side_by_side<BareGateway>(state, "reading 99 registers, without flush, ioctl and LEDs", &seconds_of, Reported);
}
void cpu(benchmark::State& state) {
    read_side_by_side<BareGateway>(state, "CPU time, without flush, ioctl and LEDs", &cpu_seconds_of, Reported);
}
void whole_wall(benchmark::State& state) {
    read_side_by_side<WholeGateway>(state, "reading 99 registers, as the daemon does it", &seconds_of, AsFast);
}
void whole_cpu(benchmark::State& state) {
    read_side_by_side<WholeGateway>(state, "CPU time, as the daemon does it", &cpu_seconds_of, AsFast);
}

BENCHMARK(wall)->Name("modbus/wall")->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(cpu)->Name("modbus/cpu")->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(whole_wall)->Name("modbus/whole_wall")->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(whole_cpu)->Name("modbus/whole_cpu")->Iterations(300)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
