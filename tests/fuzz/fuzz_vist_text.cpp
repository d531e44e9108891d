// A VIST meter that may say anything to a conversation: text frames, packets, both in the place of the other.
//
// Input: a byte whose lowest bit says whether a buffer waits for packets; then, as long as bytes are left, a byte for
// the conversation and the answers to it, see vist_line.h.

#include <span>

#include "vist_line.h"

namespace {

constexpr int MostExchanges = 120;
constexpr int ConversationCount = 18;

bool converse(HCD_VIST& driver, int which) {
    VISTFunctions& link = driver.functions;
    switch (which % ConversationCount) {
        case 0:
            return link.do_request(reqDevCRC);
        case 1:
            return link.do_request(reqVirtDevCount);
        case 2:
            return link.do_request(reqDevSpecials);
        case 3:
            return link.do_request(reqVirtDevSpecials);
        case 4:
            return link.do_request(reqVirtDevConfig);
        case 5:
            return link.do_request(reqMomentG);
        case 6:
            return link.do_request(reqMomentTG);
        case 7:
            return link.do_request(reqMomentC);
        case 8:
            return link.do_request(reqArchiveHeader);
        case 9:
            return link.do_request(reqArchiveRecordCount);
        case 10:
            return link.do_request(reqArchiveSetOldPosition);
        case 11:
            return link.do_request(reqArchiveCurrentData);
        case 12:
            return link.do_request(reqArchiveSetPosData, 5);
        case 13:
            return link.do_request(reqArchiveNext);
        case 14:
            return link.do_request(reqArchivePrev);
        case 15:
            return link.do_request(reqGetRecordByNum, 3);
        case 16:
            return link.do_request(reqReturn);
        default:
            return driver.get_description();
    }
}

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
    prepare_vist(driver, false, 0);
    driver.functions.current_buffer = has_buffer ? driver.functions.tempbuff : -1;
    try {
        while (!input.empty()) {
            const std::uint32_t sent = driver.stat_tx_bytes;
            const std::uint32_t received = driver.stat_rx_bytes;
            converse(driver, input.byte());
            check_vist(driver);
            expect(driver.stat_tx_bytes > sent, "a conversation sends something");
            expect(driver.stat_rx_bytes >= received, "counters only grow");
            expect(driver.functions.vdn_num.device_num == 1, "the network number is the configured one");
        }
    } catch (const VistRunEnded&) {
        return 0;
    }
    return 0;
}
