// What clients read, any bytes: an archive file is told as a plain map of its lines tells it, whatever span is asked
// for; gaps and events end; an item's text never acts on a terminal.
//
// Input: a byte, in 255ths of the file's times where the span begins; one for its length; then the file.

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>

#include "contract/archive_reader.h"
#include "contract/events.h"
#include "contract/gaps.h"
#include "contract/items.h"
#include "contract/plain_text.h"
#include "fuzz_ground.h"

namespace {

using contract::ArchiveLine;

void write_file(const std::string& path, std::string_view text) {
    std::ofstream(full_root() + path, std::ios::binary) << text;
}

struct Truth {
    std::map<std::int64_t, std::string> values;
    std::size_t unreadable = 0;
};

Truth plain_reading(std::string_view file) {
    Truth truth;
    while (!file.empty()) {
        const std::size_t end = std::min(file.find('\n'), file.size());
        ArchiveLine line;
        if (end < contract::ArchiveLines::LongestLine && parse_archive_line(file.substr(0, end), line)) {
            truth.values[line.time] = line.value;
        } else {
            ++truth.unreadable;
        }
        file.remove_prefix(std::min(end + 1, file.size()));
    }
    return truth;
}

void check_archive(const std::string& path, const Truth& truth, const contract::TimeSpan& span, bool whole) {
    contract::ArchiveReader reader(path, span);
    auto expected = truth.values.lower_bound(span.from);
    for (ArchiveLine line; reader.next(line); ++expected) {
        expect(expected != truth.values.end() && expected->first < span.to, "no line but those of the span");
        expect(line.time == expected->first && line.value == expected->second, "the line that was written last");
    }
    expect(expected == truth.values.end() || expected->first >= span.to, "all lines of the span");
    expect(!reader.has_changed(), "nobody has changed the file");
    if (whole) expect(reader.unreadable() == truth.unreadable, "what is no line is counted");
}

void check_item(std::string_view text) {
    write_file("/tmp/u/1/tc_items/T1", text);
    const auto item = contract::read_item(FuzzUuid, 1, "T1");
    expect(item.has_value(), "an item is there");
    const std::string shown = contract::for_terminal(item->text);
    for (const char letter : shown) {
        expect(static_cast<unsigned char>(letter) >= 0x20 && letter != 0x7F, "no control character reaches a terminal");
    }
    expect(contract::valid_utf8(shown) == shown, "what is shown is UTF-8");
    contract::number_in(item->text);
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t begin = input.byte();
    const std::size_t length = input.byte();
    const std::string_view text = input.rest();

    const FuzzGateway machine(full_root());
    const std::string folder = "/mnt/storage/u/1/tc_archives";
    for (const char* name : {"/A1", "/A20", "/_A57"}) write_file(folder + name, text);
    const Truth truth = plain_reading(text);
    check_archive(folder + "/A1", truth, {}, true);
    contract::TimeSpan span;
    if (!truth.values.empty()) {
        const std::int64_t first = truth.values.begin()->first;
        const std::int64_t all = truth.values.rbegin()->first - first;
        span = {.from = first + all / 255 * static_cast<std::int64_t>(begin), .to = 0};
        span.to = span.from + all / 255 * static_cast<std::int64_t>(length);
    }
    check_archive(folder + "/A1", truth, span, false);
    contract::ArchiveQuestion question;
    question.span = span;
    const contract::Gaps gaps = contract::find_gaps(folder, contract::ArchiveKind::Hourly, question, false);
    expect(gaps.present <= gaps.expected + truth.values.size() * 2, "records are counted once");
    std::size_t unreadable = 0;
    contract::read_events(folder, span, unreadable);
    check_item(text);
    return 0;
}
