// A VIST meter whose packets may hold anything: every operation of the driver that decodes one, in any order.
//
// Input: a byte of scene (2 summer time, 4 not described yet, 8 version 101), then, as long as bytes are left,
// a byte for an operation (see operate) and the answers that it gets for its requests, see vist_line.h. Operation 7 has
// no requests: a buffer gets the bytes that follow and is decoded at once.

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "vist_line.h"

namespace {

constexpr int MostExchanges = 200;

/// A packet goes straight into a buffer, and its decoder has a look at it.
void decode(HCD_VIST& driver, FuzzInput& input) {
    const std::uint8_t which = input.byte();
    const int buffers[] = {driver.functions.intbuff, driver.functions.mombuff, driver.functions.archheader,
                           driver.functions.archheader};
    const auto buffer = driver.buffers.GetBuffer(buffers[which % 4]);
    const auto bytes = input.bytes(std::min<std::size_t>(input.byte() + 7U, buffer.size()));
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
    int error = 0;
    switch (which % 4) {
        case 0:
            driver.flush_values(false, driver.functions.intbuff);
            break;
        case 1:
            driver.flush_values(true, driver.functions.mombuff);
            break;
        case 2:
            driver.flush_archive_header();
            break;
        default:
            driver.flush_archive_data(error);
            expect(error == 0 || error == 1, "a record is bad or it is not");
            break;
    }
}

void operate(HCD_VIST& driver, FuzzInput& input) {
    std::time_t time = 0;
    switch (input.byte() % 8) {
        case 0:
            driver.get_description();
            break;
        case 1:
            driver.FlushCurrentValues();
            break;
        case 2:
            driver.get_archives(0);
            break;
        case 3:
            driver.get_archives(2);
            break;
        case 4:
            driver.functions.current_buffer = driver.functions.archheader;
            driver.get_oldest_timestamp();
            break;
        case 5:
            driver.functions.current_buffer = driver.functions.archheader;
            driver.getTimestampByRecordNum(4, time);
            break;
        case 6:
            gateway().sleep(601);
            driver.run_main();
            break;
        default:
            driver.selected_subsystem %= HCD_VIST::MaxVirtualDevices;
            decode(driver, input);
            break;
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    // A log that cannot be opened is not written: the words are formed all the same.
    std::filesystem::create_directories(full_root() + "/tmp/uni_logs." + FuzzUuid + ".txt");
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t scene = input.byte();
    ::setenv("TZ", (scene & 2) != 0 ? "EET-2EEST,M3.5.0/3,M10.5.0/4" : "UTC0", 1);
    ::tzset();
    // A pass that is whole is handed over, so there must be a staging directory.
    VistScriptedLine line(full_root(), input, MostExchanges);
    HCD_VIST driver(FuzzUuid);
    prepare_vist(driver, (scene & 4) == 0, (scene & 8) != 0 ? 101 : 102);
    try {
        while (!input.empty()) {
            operate(driver, input);
            check_vist(driver);
        }
    } catch (const VistRunEnded&) {
        input.bytes(size);
    }
    check_vist_files();
    empty_directories();
    return 0;
}
