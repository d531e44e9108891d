#pragma once
// The link of the VIST driver: every exchange with the meter passes through do_request, which walks a table of request
// rows and owns retries, the error budget, the connected state, and the copying of binary answers into named buffers.

#include <cstdint>
#include <span>
#include <string>

#include "driver/hcd_base_driver.h"
#include "drivers/vist/vist_requests.h"

class HCD_VIST;

class VISTFunctions : public UniScript {
  public:
    /// `rec_count` of do_request when the conversation has no position to give.
    static constexpr int NoPosition = 999999999;

    /// Makes the driver's four named buffers, 300 bytes each.
    explicit VISTFunctions(HCD_VIST* driver);

    /// Runs a conversation. True when its last row succeeded; after five failures without a success in between it is
    /// given up. `rec_count` is the record position of a SETPOS row; 0 does not exist and ends the call at once.
    bool do_request(std::span<const VISTRequest> rows, int rec_count = NoPosition);

    int current_buffer = -1;  ///< named buffer that receives binary answers, -1 for none
    int tempbuff, intbuff, mombuff, archheader;
    int ret_int = 0;  ///< last value of a RET_INT row
    int ret_vdn = 0;  ///< last value of a RET_VDN row
    struct {
        int device_num = 0;   ///< network number in CALL: the configured serial number
        int virtdev_num = 0;  ///< virtual device number in VDN
    } vdn_num;

  private:
    /// What a row's answer leads to.
    enum class Outcome {
        Stay,      ///< the same row goes out again; the connected state follows
        Advance,   ///< the next row
        Restart,   ///< the whole conversation from its first row
        WrongVdn,  ///< the same row, and the connected state is not touched
    };

    bool send_request(const std::string& command, ExchangeAnswer& answer);
    std::string build_command(const VISTRequest& row, int rec_count);
    Outcome take_text(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer, int& ErrCnt);
    Outcome take_value(const VISTRequest& row, int second, int third, std::size_t length, int& ErrCnt);
    Outcome take_binary(const VISTRequest& row, std::size_t index, const ExchangeAnswer& answer, int& ErrCnt);
    void log_packet(const ExchangeAnswer& answer);

    HCD_VIST* pVISTdrv;
};
