// A message to heatmeter-store, any subject and body: it has a reason why it is none, or what it holds can stand in the
// database, and comes out of it as it went in. Its rows are in order, each key once.
//
// Input: the subject, the end of a line, the body, as it is or as gzip.

#include <cmath>

#include <fmt/format.h>

#include "contract/plain_text.h"
#include "fuzz_ground.h"
#include "store/message.h"
#include "store/rows.h"

namespace {

void check_text(const std::string& text) {
    expect(!text.empty() && text.size() <= store::LongestText, "a text has a length");
    expect(text.find('\0') == std::string::npos, "no zero byte in a text");
    expect(contract::valid_utf8(text) == text, "a text is UTF-8");
}

std::string number_of(double value) {
    if (std::isnan(value)) return "\"nan\"";
    if (std::isinf(value)) return value < 0 ? "\"-inf\"" : "\"inf\"";
    return fmt::format("{}", value);
}

std::string quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        quoted +=
            byte < 0x20 || byte == '"' || byte == '\\' ? fmt::format("\\u{:04x}", byte) : std::string(1, character);
    }
    return quoted + '"';
}

std::string written_out(const store::Message& message) {
    std::string lines;
    for (const store::Line& line : message.lines) {
        lines += fmt::format("{}[{},{},{},{}]", lines.empty() ? "" : ",", quoted(line.name), line.time, line.quality,
                             number_of(line.value));
    }
    return fmt::format(R"({{"gateway":{},"meter":{},"system":{},"kind":"{}","lines":[{}]}})", quoted(message.gateway),
                       quoted(message.meter), message.system, message.kind, lines);
}

bool same(double one, double other) {
    return std::isnan(one) ? std::isnan(other) : one == other;
}

void check_rows(const store::Message& message) {
    std::vector<store::Row> rows;
    for (const store::Line& line : message.lines) {
        rows.push_back({1, static_cast<int>(line.name.size()), line.time, line.quality, line.value,
                        store::written_at(1, 1, line.place)});
    }
    const std::size_t count = rows.size();
    store::put_in_order(rows, message.kind == "event");
    expect(rows.size() <= count && rows.empty() == (count == 0), "rows are of lines");
    for (std::size_t i = 1; i < rows.size() && message.kind != "event"; ++i) {
        const auto key = [](const store::Row& row) { return std::pair(row.time, row.name); };
        expect(key(rows[i - 1]) < key(rows[i]), "keys grow");
    }
    expect(store::encode(rows).size() == 21 + rows.size() * 62, "a row has its length");
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\n'), input.size());
    std::string body;
    const std::string_view rest = input.substr(std::min(end + 1, input.size()));
    if (!store::unpack(rest.starts_with("\x1F\x8B") ? "gzip" : "", rest, body).empty()) return 0;
    static store::Decoder decoder;
    store::Message message;
    if (!decoder.decode(input.substr(0, end), body, message).empty()) return 0;
    check_text(message.gateway);
    check_text(message.meter);
    expect(message.system >= 0, "a system is a number");
    expect(message.lines.size() + message.bad.size() <= store::MostLines, "no more lines than places");
    for (const store::Line& line : message.lines) check_text(line.name);
    for (const store::BadLine& bad : message.bad) {
        expect(!bad.reason.empty() && !bad.text.empty(), "a bad line has its text and a reason");
        expect(body.find(bad.text) != std::string::npos, "the text is the message's");
    }
    check_rows(message);

    const std::string again = written_out(message);
    if (again.size() > store::LargestBody) return 0;
    store::Message copy;
    expect(decoder.decode(store::subject_of(message), again, copy).empty(), "what was written out is a message");
    expect(copy.lines.size() == message.lines.size() && copy.bad.empty(), "of the same lines");
    for (std::size_t i = 0; i < copy.lines.size(); ++i) {
        const store::Line& one = message.lines[i];
        const store::Line& other = copy.lines[i];
        expect(one.name == other.name && one.time == other.time && one.quality == other.quality &&
                   same(one.value, other.value),
               "a line stays what it is");
    }
    return 0;
}
