// A VIST meter that may say anything to a conversation: text frames, packets, both in the place of the other.
//
// Input: a byte whose lowest bit says whether a buffer waits for packets; then, as long as bytes are left, a byte for
// the conversation and the answers to it, see vist_line.h.

#include <array>
#include <span>

#include "vist_line.h"

namespace {

using namespace vist;

constexpr int MostExchanges = 120;

constexpr std::span<const VISTRequest> Conversations[] = {
    reqDevCRC,
    reqVirtDevCount,
    reqDevSpecials,
    reqVirtDevSpecials,
    reqVirtDevConfig,
    reqMomentG,
    reqMomentTG,
    reqMomentC,
    reqArchiveHeader,
    reqArchiveRecordCount,
    reqArchiveSetOldPosition,
    reqArchiveCurrentData,
    reqArchiveSetPosData,
    reqArchiveNext,
    reqArchivePrev,
    reqGetRecordByNum,
    reqReturn,
};

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const bool has_buffer = (input.byte() & 1) != 0;
    VistScriptedLine line(empty_root(), input, MostExchanges);
    HCD_VIST driver(FuzzUuid);
    prepare_vist(driver, line, 0);
    UniLog silent("", "");
    VISTFunctions link(&driver, &silent,
                       {.exchange = [&](Bytes command, ExchangeAnswer& answer,
                                        int most) { driver.send_receive_locked(command, answer, most); },
                        .set_busy = [](int) {},
                        .set_connected = [](bool) {}});
    std::array<std::uint8_t, 300> buffer{};
    VISTParameters parameters{.device_num = 1, .rec_count = 5};
    if (has_buffer) parameters.current_buffer = buffer;
    try {
        while (!input.empty()) {
            const VISTTraffic before = link.traffic();
            const std::size_t which = input.byte() % (std::size(Conversations) + 1);
            if (which == std::size(Conversations)) {
                driver.get_description();
                continue;
            }
            link.do_request(Conversations[which], parameters);
            expect(link.traffic().stat_tx_bytes > before.stat_tx_bytes, "a conversation sends something");
            expect(link.traffic().stat_rx_bytes >= before.stat_rx_bytes, "counters only grow");
        }
    } catch (const VistRunEnded&) {
        return 0;
    }
    return 0;
}
