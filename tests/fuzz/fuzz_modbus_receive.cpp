// Questions over Modbus on a line that may say anything, in any pieces, with any errors: what is taken for an answer
// has been on the line, whole and with a right CRC, and nothing else is touched.
//
// Input: a byte for the size of the answer's area (0 the usual 512 bytes, else so many), one for the slave. Then, as
// long as bytes are left, a byte for the kind of question, two for its first number, two for its second one, and what
// happens on the line, see modbus_line.h.

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "drivers/vist_modbus/modbus_exchange.h"
#include "modbus_line.h"

namespace {

constexpr int AnswerMilliseconds = 600;
constexpr std::size_t UsualArea = 512;
constexpr std::size_t LongestAnswer = 2 + 250;
constexpr std::size_t MostHeard = 300;

struct Kind {
    ModbusRead read;
    std::uint8_t function;
};
constexpr std::array<Kind, 4> Kinds = {
    {{read_holding, 3}, {read_input, 4}, {read_archive_header, 20}, {read_archive_record, 20}}};

int word(FuzzInput& input) {
    const int high = input.byte();
    return high << 8 | input.byte();
}

/// The frame that gave such an answer; words of data stand in the host's order in it.
std::vector<std::uint8_t> frame_of(std::span<const std::uint8_t> answer, std::uint8_t slave) {
    std::vector<std::uint8_t> frame = {slave, answer[0], answer[1]};
    for (std::size_t at = 2; at + 1 < answer.size(); at += 2) {
        const bool little = std::endian::native == std::endian::little;
        frame.push_back(answer[little ? at + 1 : at]);
        frame.push_back(answer[little ? at : at + 1]);
    }
    put_modbus_crc(frame);
    return frame;
}

void check(const ModbusScriptedLine& line, std::span<const std::uint8_t> area, int length, const Kind& kind,
           std::uint8_t slave) {
    expect(line.heard().size() <= MostHeard, "at most 300 bytes are listened to");
    if (length == -1) return;
    expect(length >= 4 && length % 2 == 0, "an answer has at least one word");
    expect(static_cast<std::size_t>(length) <= area.size(), "and has room in its area");
    if (area.size() <= LongestAnswer) return;  // it may be cut
    expect(area[0] == kind.function && area[1] == length - 2, "its head tells what it is");
    const auto frame = frame_of(area.first(static_cast<std::size_t>(length)), slave);
    const auto& heard = line.heard();
    expect(std::search(heard.begin(), heard.end(), frame.begin(), frame.end()) != heard.end(),
           "it has been on the line");
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t area_size = input.byte();
    const std::uint8_t slave = input.byte();
    ModbusScriptedLine line(empty_root(), input);
    while (!input.empty()) {
        const Kind& kind = Kinds[input.byte() % Kinds.size()];
        const int first = word(input);
        const int second = word(input);
        std::vector<std::uint8_t> area(area_size == 0 ? UsualArea : area_size);
        const int length =
            kind.read(ModbusScriptedLine::Descriptor, area, slave, first, second, AnswerMilliseconds, second);
        check(line, area, length, kind, slave);
    }
    return 0;
}
