#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>

#include <fmt/format.h>

#include "contract/capture.h"
#include "contract/json.h"
#include "contract/plain_text.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

using contract::Direction;
using contract::Frame;

constexpr std::size_t LongestRow = std::size_t{64} * 1024;

const char* text_of(Direction direction) {
    return direction == Direction::Question ? "question" : direction == Direction::Answer ? "answer" : "unknown";
}

Json::Value json_of(const Frame& frame) {
    const auto text_or_null = [](const std::string& text) {
        return text.empty() ? Json::Value() : Json::Value(contract::valid_utf8(text));
    };
    Json::Value value;
    value["time"] = text_or_null(frame.time);
    value["line"] = text_or_null(frame.line);
    value["direction"] = text_of(frame.direction);
    value["kind"] = text_or_null(frame.kind);
    value["fields"] = Json::arrayValue;
    for (const contract::FrameField& field : frame.fields) {
        Json::Value& entry = value["fields"].append(Json::objectValue);
        entry["name"] = contract::valid_utf8(field.name);
        entry["value"] = field.is_number ? Json::Value(std::strtod(field.value.c_str(), nullptr))
                                         : Json::Value(contract::valid_utf8(field.value));
    }
    value["checks"] = Json::arrayValue;
    for (const contract::FrameCheck& check : frame.checks) {
        Json::Value& entry = value["checks"].append(Json::objectValue);
        entry["name"] = check.name;
        entry["is"] = check.is;
        entry["should_be"] = check.should_be;
        entry["right"] = check.right();
    }
    value["bytes"] = contract::hex_text(frame.bytes);
    value["reason"] = text_or_null(frame.reason);
    return value;
}

/// Prints frame after frame, and remembers whether one was wrong.
class Printer {
  public:
    explicit Printer(const Console& output) : console(output) {
        if (console.json) out << '[';
    }

    void print(const Frame& frame) {
        any = true;
        if (!frame.is_right()) wrong = true;
        if (console.json) {
            out << (first ? "\n" : ",\n") << contract::json_line(json_of(frame));
        } else {
            print_text(frame);
        }
        first = false;
    }

    int finish() {
        if (console.json) out << "\n]\n";
        out.flush();
        if (!any) throw Failure{"no traffic in it: hex text, a debug log of the daemon or a trace of heatmeter-sim"};
        return wrong ? Finding : Done;
    }

  private:
    void print_text(const Frame& frame) {
        std::string head = frame.time.empty() ? "" : frame.time + "  ";
        if (!frame.line.empty()) head += frame.line + "  ";
        if (frame.direction != Direction::Unknown) head += fmt::format("{:8}  ", text_of(frame.direction));
        head += frame.kind.empty() ? "no frame" : frame.kind;
        if (!frame.reason.empty()) head += " (" + frame.reason + ')';
        put(head, !frame.is_right() ? "31" : frame.direction == Direction::Question ? "36" : "32");
        std::size_t width = 0;
        for (const contract::FrameField& field : frame.fields) {
            width = std::max(width, contract::columns_of(contract::for_terminal(field.name)));
        }
        for (const contract::FrameField& field : frame.fields) {
            const std::string name = contract::for_terminal(field.name);
            put("    " + name + std::string(width - contract::columns_of(name) + 2, ' ') + field.value);
        }
        std::string sums;
        for (const contract::FrameCheck& check : frame.checks) {
            sums += fmt::format("{}{} {} {}", sums.empty() ? "" : ", ", check.name, check.is,
                                check.right() ? "right" : "wrong, should be " + check.should_be);
        }
        if (!sums.empty()) put("    " + sums, frame.is_right() ? nullptr : "31");
        if (!frame.is_right()) put_bytes(frame.bytes);
    }

    void put_bytes(Bytes bytes) {
        constexpr std::size_t RowBytes = 16;
        for (std::size_t at = 0; at < bytes.size(); at += RowBytes) {
            put("    " + contract::hex_text(part_of(bytes, at, RowBytes)));
        }
    }

    void put(const std::string& text, const char* colour = nullptr) {
        const bool coloured = console.colour && colour != nullptr;
        if (coloured) out << "\033[" << colour << 'm';
        out << contract::for_terminal(text);
        if (coloured) out << "\033[0m";
        out << '\n';
    }

    const Console& console;
    Output out;
    bool first = true;
    bool any = false;
    bool wrong = false;
};

/// Hands the rows of a file on; one that is longer than any of ours is given in parts.
void read_rows(int fd, const std::string& path, contract::CaptureReader& reader) {
    std::array<char, 16 * 1024> buffer{};
    std::string row;
    while (true) {
        const ssize_t got = ::read(fd, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw Failure{fmt::format("{} cannot be read: {}", path, std::strerror(errno))};
        if (got == 0) break;
        std::string_view part(buffer.data(), static_cast<std::size_t>(got));
        while (!part.empty()) {
            const std::size_t end = part.find('\n');
            row += part.substr(0, end);
            if (end == std::string_view::npos && row.size() < LongestRow) break;
            reader.take_row(row);
            row.clear();
            part.remove_prefix(end == std::string_view::npos ? part.size() : end + 1);
        }
    }
    if (!row.empty()) reader.take_row(row);
    reader.finish();
}

int run_decode(const std::string& family_text, const std::string& path, const Console& console) {
    const contract::Family family = contract::family_of(family_text);
    if (family == contract::NoFamily) {
        throw Failure{"no family: \"" + family_text + "\" (KM5, VIST, VISTmodbus, SA94)", Usage};
    }
    int fd = STDIN_FILENO;
    if (!path.empty() && path != "-") fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) throw Failure{fmt::format("{}: {}", path, std::strerror(errno)), Finding};
    constexpr std::size_t MostLines = 256;
    std::map<std::string, std::unique_ptr<contract::Decoder>> decoders;  // one for each line of a trace
    Printer printer(console);
    contract::CaptureReader reader(family != contract::SA94, [&](const contract::Piece& piece) {
        if (decoders.size() > MostLines) decoders.clear();
        auto& decoder = decoders[piece.line];
        if (decoder == nullptr) decoder = contract::make_decoder(family);
        for (const Frame& frame : decoder->decode(piece)) printer.print(frame);
    });
    read_rows(fd, fd == STDIN_FILENO ? "standard input" : path, reader);
    if (fd != STDIN_FILENO) ::close(fd);
    return printer.finish();
}

}  // namespace

Command decode_command(CLI::App& app, Console& console) {
    struct Words {
        std::string family;
        std::string path;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* const command =
        app.add_subcommand("decode", "what was said on a line, frame by frame; status 1 when some of it is wrong");
    command->add_option("FAMILY", words->family, "KM5, VIST, VISTmodbus or SA94")->required();
    command->add_option("FILE", words->path,
                        "hex text, a debug log of the daemon or a trace of heatmeter-sim; standard input without it");
    command->add_flag("--json", console.json, "JSON instead of text");
    return {command, [words, &console] { return run_decode(words->family, words->path, console); }};
}

}  // namespace ctl
