#pragma once
// The three logs of an SA-94 driver.

#include <memory>

#include "core/uni_log.h"

struct SA94Logs {
    std::unique_ptr<UniLog> log_messages;  ///< the outline of a pass
    std::unique_ptr<UniLog> log_debug;     ///< every exchange and every step of a search
    std::unique_ptr<UniLog> log_general;   ///< the port and the walk over blocks

    template <typename... Parts>
    void messages(const Parts&... parts) const {
        log_line(log_messages.get(), parts...);
    }
    template <typename... Parts>
    void debug(const Parts&... parts) const {
        log_line(log_debug.get(), parts...);
    }
    template <typename... Parts>
    void general(const Parts&... parts) const {
        log_line(log_general.get(), parts...);
    }
    /// To the first two.
    template <typename... Parts>
    void both(const Parts&... parts) const {
        messages(parts...);
        debug(parts...);
    }
};
