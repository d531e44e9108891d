// A published item: a small file that is rewritten whenever the driver has a new value.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "config/publisher.h"
#include "ground.h"
#include "ratio.h"

namespace {

constexpr double Value = 12345.678901;
constexpr int ItemsPerTurn = 500;

void put_value() {
    put_item(Value, Ground::Uuid, "T1", nullptr, 1);
}

/// The system calls that no writer of such a file can do without.
void put_bare(const char* path) {
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    [[maybe_unused]] const ssize_t written = ::write(fd, "12345.678901\n", 13);
    ::close(fd);
}

void against_shell(benchmark::State& state) {
    const Ground ground(Ground::InMemory);
    const DeskGateway machine(ground);
    const std::string command =
        "echo \"12345.678901\" > " + ground.real_path("/tmp/") + Ground::Uuid + "/1/tc_items/T2";
    compare(
        state, "an item by put_item", [] { return seconds_of(ItemsPerTurn, put_value); }, "by a shell's echo",
        [&] { return seconds_of(1, [&] { [[maybe_unused]] const int status = std::system(command.c_str()); }); },
        times_faster(60.0));
}

void against_bare(benchmark::State& state) {
    const Ground ground(Ground::InMemory);
    const DeskGateway machine(ground);
    const std::string path = ground.real_path("/tmp/") + Ground::Uuid + "/1/tc_items/T2";
    compare(
        state, "an item by put_item", [] { return cpu_seconds_of(ItemsPerTurn, put_value); }, "bare open, write, close",
        [&] { return cpu_seconds_of(ItemsPerTurn, [&] { put_bare(path.c_str()); }); }, times_as_long(1.3));
}

BENCHMARK(against_shell)->Name("publish/shell")->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(against_bare)->Name("publish/bare")->Iterations(200)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
