// A VIST meter whose packets may hold anything: every operation of the driver that decodes one, in any order.
//
// Input: a byte of scene (2 summer time, 4 not described yet, 8 version 101), then, as long as bytes are left,
// a byte for an operation (see operate) and the answers that it gets for its requests, see vist_line.h. Operation 7 has
// no requests: a buffer gets the bytes that follow and is decoded at once.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "vist_line.h"

namespace {

constexpr int MostExchanges = 200;

/// The bytes that have come for a decoder so far, a packet over the other.
struct Buffers {
    std::array<std::array<std::uint8_t, 300>, 3> bytes{};
    vist::ArchiveHeader header;
    std::array<double, 15> values{};
};

/// A packet goes straight into a buffer, and its decoder has a look at it.
void decode(Buffers& buffers, int version, FuzzInput& input) {
    const std::uint8_t which = input.byte() % 4;
    const PacketBuffer buffer = buffers.bytes[which == 3 ? 2 : which];
    const auto bytes = input.bytes(std::min<std::size_t>(input.byte() + 7U, buffer.size()));
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
    switch (which) {
        case 0:
        case 1:
            buffers.values = vist::decode_values(buffer, which == 1, version, buffers.values).values;
            break;
        case 2:
            buffers.header = vist::decode_header(buffer);
            break;
        default:
            if (vist::decode_record_time(buffer)) vist::take_full_hour(buffer);
            expect(vist::decode_record(buffer, buffers.header).values.size() <= 12, "a record has so many values");
            break;
    }
    const vist::DeviceSpecials specials = vist::decode_specials(buffer);
    expect(specials.firmware.size() <= 63 && specials.model.size() <= 127, "texts fit their fields");
    std::vector<std::uint8_t> body(buffer.begin() + PacketBodyAt, buffer.end());
    vist::decode_virtual_device(body, version == 101);
    vist::decode_config(body);
}

void operate(HCD_VIST& driver, Buffers& buffers, int version, FuzzInput& input) {
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
            driver.get_oldest_timestamp();
            break;
        case 5:
            driver.getTimestampByRecordNum(4, time);
            break;
        case 6:
            gateway().sleep(601);
            driver.run_main();
            break;
        default:
            decode(buffers, version, input);
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
    const int version = (scene & 8) != 0 ? 101 : 102;
    prepare_vist(driver, line, (scene & 4) == 0 ? version : 0);
    Buffers buffers;
    try {
        while (!input.empty()) operate(driver, buffers, version, input);
    } catch (const VistRunEnded&) {
        input.bytes(size);
    }
    check_vist_files();
    empty_directories();
    return 0;
}
