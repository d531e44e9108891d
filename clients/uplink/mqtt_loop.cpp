#include "uplink/mqtt_loop.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include <mosquitto.h>

namespace uplink {

namespace {

thread_local std::jmp_buf* way_out = nullptr;  // of the thread that is in the library's loop

}  // namespace

InCallback::InCallback() : outside(std::exchange(way_out, nullptr)) {}

InCallback::~InCallback() {
    way_out = outside;
}

int mqtt_loop(mosquitto* client, int milliseconds) {
    std::jmp_buf here;
    way_out = &here;
    if (setjmp(here) != 0) {  // NOLINT(cert-err52-cpp): above there are only functions of C
        way_out = nullptr;
        return MOSQ_ERR_PROTOCOL;
    }
    const int result = ::mosquitto_loop(client, milliseconds, 1);
    way_out = nullptr;
    return result;
}

}  // namespace uplink

/// That of the C library is for all others.
// NOLINTNEXTLINE(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp, readability-identifier-naming)
extern "C" [[noreturn]] void __assert_fail(const char* assertion, const char* file, unsigned line,
                                           const char* function) {
    if (uplink::way_out != nullptr) std::longjmp(*uplink::way_out, 1);  // NOLINT(cert-err52-cpp)
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, assertion);
    std::abort();
}
