// Noted traffic that may hold anything: the first byte chooses the family, the rest is text, row by row; then the same
// bytes once more as a question and as an answer that a log had noted.

#include <algorithm>
#include <utility>

#include "contract/capture.h"
#include "contract/plain_text.h"
#include "fuzz_ground.h"

namespace {

void check(const contract::Frame& frame) {
    expect(frame.is_right() || !frame.reason.empty() || !frame.checks.empty(), "what is wrong has a reason");
    for (const contract::FrameField& field : frame.fields) {
        expect(!field.name.empty(), "a field has a name");
        contract::for_terminal(field.value);
        contract::valid_utf8(field.value);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const auto family = static_cast<contract::Family>(1U << (input.byte() & 3));
    const std::string_view text = input.rest();

    const auto decoder = contract::make_decoder(family);
    std::size_t given = 0;
    std::size_t taken = 0;
    contract::CaptureReader reader(family != contract::SA94, [&](const contract::Piece& piece) {
        given += piece.bytes.size();
        for (const contract::Frame& frame : decoder->decode(piece)) {
            taken += frame.bytes.size();
            check(frame);
        }
    });
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        reader.take_row(text.substr(at, end - at));
        at = end + 1;
    }
    reader.finish();
    expect(given == taken, "no byte is lost or shown twice");

    contract::Piece piece;
    piece.bytes.assign(text.begin(), text.end());
    for (const auto direction :
         {contract::Direction::Question, contract::Direction::Answer, contract::Direction::Unknown}) {
        piece.direction = direction;
        for (const contract::Frame& frame : decoder->decode(piece)) check(frame);
    }
    piece.direction = contract::Direction::Answer;
    piece.bare = true;
    piece.title = "x";
    for (const contract::Frame& frame : decoder->decode(piece)) check(frame);
    return 0;
}
