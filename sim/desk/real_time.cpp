#include "real_time.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include <linux/time_types.h>
#include <time.h>

namespace sim {

namespace {

constexpr Micros MicrosPerSecond = 1'000'000;
constexpr long NanosPerMicro = 1000;

}  // namespace

Micros real_time() {
    __kernel_old_timespec now{};
    ::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return now.tv_sec * MicrosPerSecond + now.tv_nsec / NanosPerMicro;
}

int poll_until(std::span<pollfd> watched, std::optional<Micros> until) {
    if (!until) return static_cast<int>(::syscall(SYS_ppoll, watched.data(), watched.size(), nullptr, nullptr, 0));
    const Micros left = std::max<Micros>(*until - real_time(), 0);
    __kernel_old_timespec patience{};
    patience.tv_sec = static_cast<decltype(patience.tv_sec)>(left / MicrosPerSecond);
    patience.tv_nsec = static_cast<decltype(patience.tv_nsec)>(left % MicrosPerSecond * NanosPerMicro);
    return static_cast<int>(::syscall(SYS_ppoll, watched.data(), watched.size(), &patience, nullptr, 0));
}

}  // namespace sim
