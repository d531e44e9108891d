#pragma once
// libmosquitto's loop, of which a broker that talks rubbish cannot make the end of the process: up to version 2.0.11 at
// least, the library calls abort() over a property that it does not know.

#include <csetjmp>

struct mosquitto;

namespace uplink {

/// As mosquitto_loop(3); MOSQ_ERR_PROTOCOL where the library would have called abort(). It holds no lock then.
int mqtt_loop(mosquitto* client, int milliseconds);

/// In a callback, whose own things have to be taken down: there abort() is abort().
class InCallback {
  public:
    InCallback();
    ~InCallback();
    InCallback(const InCallback&) = delete;
    InCallback& operator=(const InCallback&) = delete;

  private:
    std::jmp_buf* outside;
};

}  // namespace uplink
