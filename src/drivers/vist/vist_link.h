#pragma once
// The link of the VIST driver: every exchange with the meter passes through do_request, which walks a table of request
// rows and owns tries, the error budget, the connected state, the counters, and the copying of binary answers. It knows
// an exchange, a log and whom to tell; what a conversation is about comes as its parameters and leaves as its reply.

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "core/uni_log.h"
#include "driver/hcd_base_driver.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist/vist_requests.h"

struct VISTLine {
    std::function<void(Bytes command, ExchangeAnswer& answer, int most)> exchange;
    std::function<void(int flag)> set_busy;
    std::function<void(bool flag)> set_connected;
};

struct VISTParameters {
    /// `rec_count` of a conversation that has no position to give.
    static constexpr int NoPosition = 999999999;

    int device_num = 0;                ///< network number in CALL
    int virtdev_num = 0;               ///< virtual device number in VDN
    int virtdev_cnt = -1;              ///< for the log
    PacketBuffer current_buffer = {};  ///< receives binary answers; empty: none
    int rec_count = NoPosition;        ///< record position of a SETPOS row; 0 does not exist and ends the call at once
};

struct VISTReply {
    bool done = false;  ///< the last row succeeded
    int ret_int = 0;    ///< of the last RET_INT row
    int ret_vdn = 0;    ///< of the last RET_VDN row

    explicit operator bool() const { return done; }
};

struct VISTTraffic {
    std::uint32_t stat_tx_bytes = 0;
    std::uint32_t stat_rx_bytes = 0;
    std::uint32_t stat_text_error_bytes = 0;
    std::uint32_t stat_binary_error_bytes = 0;
    std::uint32_t stat_vdn_error_bytes = 0;
    std::uint32_t stat_send_errors = 0;
};

class VISTFunctions : public UniScript {
  public:
    /// The driver is a word in logs only.
    VISTFunctions(const void* driver, UniLog* log, VISTLine line);

    /// Runs a conversation; after five failures without a success in between it is given up.
    VISTReply do_request(std::span<const VISTRequest> rows, const VISTParameters& parameters);

    const VISTTraffic& traffic() const { return counted; }

  private:
    /// What a row's answer leads to.
    enum class Outcome {
        Stay,      ///< the same row goes out again; the connected state follows
        Advance,   ///< the next row
        Restart,   ///< the whole conversation from its first row
        WrongVdn,  ///< the same row, and the connected state is not touched
    };
    struct Conversation {
        const VISTParameters& parameters;
        VISTReply reply;
        int ErrCnt = 0;
    };

    bool send_request(const std::string& command, ExchangeAnswer& answer);
    std::string build_command(const VISTRequest& row, const VISTParameters& parameters);
    Outcome take_text(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer, Conversation& talk);
    Outcome take_binary(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer, Conversation& talk);
    void log_packet(const ExchangeAnswer& answer);

    const void* pVISTdrv;
    UniLog* log;
    VISTLine line;
    VISTTraffic counted;
};
