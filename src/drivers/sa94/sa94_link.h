#pragma once
// One request to an SA-94 meter and its tries. The link knows how to exchange bytes, a log, and whom to tell whether
// the meter answers; it knows no driver.

#include <functional>

#include "core/uni_log.h"
#include "driver/exchange.h"
#include "drivers/sa94/sa94_request.h"

class SA94Link {
  public:
    static constexpr int Attempts = 24;  ///< of every request

    /// One write and one read.
    using Exchange = std::function<void(Bytes tx, ExchangeAnswer& rx)>;
    using Connected = std::function<void(bool)>;

    /// `log` outlives the link.
    SA94Link(Exchange exchange, Connected connected, UniLog& log);

    void exchangeOnce(SA94Request& request) const;
    /// A request until it is answered; any answer of any length will do. `connected` hears the outcome of all but those
    /// that need no answer.
    bool Transact(SA94Request& request, int attempts = Attempts) const;
    /// Reads one block of memory, in the long form of a meter with long segments.
    bool ReadArchiveRecord(SA94Request& request, bool extended, int segment, std::uint32_t block) const;

    // A conversation begins and ends.
    bool connect(SA94Request& request) const;
    void disconnect(SA94Request& request) const;

  private:
    Exchange exchange;
    Connected set_connected;
    UniLog& log;
};
