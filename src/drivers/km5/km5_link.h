#pragma once
// One request to a KM5 meter with its tries. The link knows how to exchange bytes and whom to tell of the outcome; it
// does not know which meter it asks, or why.

#include <functional>

#include "core/uni_log.h"
#include "driver/exchange.h"
#include "drivers/km5/km5_frame.h"

class KM5Link {
  public:
    /// Puts `tx` on the line and collects at most `rx_max` bytes.
    using Exchange = std::function<void(Bytes tx, ExchangeAnswer& rx, int rx_max)>;
    /// Hears whether the meter is on the line.
    using Listener = std::function<void(bool connected)>;

    /// `log` gets the line, byte by byte, and outlives the link.
    KM5Link(UniLog* log, Exchange exchange, Listener listener);

    /// One exchange, no retry.
    void send_request(KM5_request& req);
    bool check_control_sum(const KM5_request& req);
    /// One request with its retries: at most 21 exchanges. `publish`: tell the listener of the outcome.
    bool request(KM5_request& req, const KM5_netaddr& netaddr, bool publish);
    /// A whole pack of requests; stops at the first that fails.
    bool do_request(KM5_pack& pack, const KM5_netaddr& netaddr);

    bool Connected = false;  ///< outcome of the last pack; the item of that name is published apart

  private:
    UniLog* log;
    Exchange exchange;
    Listener listener;
};
