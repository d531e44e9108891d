// What anybody may send to heatmeter-view, any bytes: a path and its words, a header, a password file. A path never
// leads out of a meter's folder, means the same when it is written out again, and gets an answer of a known kind.
//
// Input: the target of a request; the same bytes as a header, an address, a password file.

#include <fstream>
#include <memory>

#include <json/reader.h>

#include "fuzz_ground.h"
#include "view/address.h"
#include "view/api.h"
#include "view/gate.h"

namespace {

std::string written_out(const view::Request& request) {
    std::string target;
    const auto add = [&target](std::string_view text) {
        constexpr const char* Digits = "0123456789abcdef";
        for (const char letter : text) {
            const auto byte = static_cast<unsigned char>(letter);
            target += {'%', Digits[byte >> 4], Digits[byte & 15]};
        }
    };
    for (const std::string& part : request.path) add((target += '/', part));
    if (request.path.empty()) target = "/";
    char mark = '?';
    for (const auto& [name, value] : request.words) {
        add((target += mark, name));
        add((target += '=', value));
        mark = '&';
    }
    return target;
}

/// A gateway with one meter, and what asks it.
struct Stand {
    Stand() : gateway(full_root()) {
        std::ofstream(full_root() + "/tmp/u/1/tc_items/T1") << "71.250000\n";
        std::ofstream archive(full_root() + "/mnt/storage/u/1/tc_archives/A1");
        for (int i = 0; i < 100; ++i) archive << 1700002800 + i * 3600 << ",192," << i << ".000000\n";
        archive.close();
        live = std::make_unique<contract::Live>(std::vector<std::string>{FuzzUuid});
        api = std::make_unique<view::Api>(*live, look);
    }

    FuzzGateway gateway;
    view::Mailbox mailbox;
    view::Worker worker{1};
    view::Look look{worker, mailbox};
    std::unique_ptr<contract::Live> live;
    std::unique_ptr<view::Api> api;
};

void check_answer(view::Answer answer) {
    expect(answer.status == 200 || answer.status == 400 || answer.status == 404 || answer.status == 503, "a status");
    if (answer.source) {
        while (answer.source->next(answer.body) == view::Source::Piece::More) {
        }
        answer.source.reset();
    }
    if (answer.type != "application/json" || answer.fixed_body.data() != nullptr) return;
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    expect(reader->parse(answer.body.data(), answer.body.data() + answer.body.size(), &value, nullptr), "JSON");
    for (const char letter : answer.body) expect(letter == '\n' || (letter >= ' ' && letter < 0x7F), "plain letters");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Stand stand;
    const std::string text(reinterpret_cast<const char*>(data), size);
    view::parse_authorization("Basic " + text);
    view::is_own_host(text);
    view::parse_address(text);
    std::string fault;
    const auto users = view::parse_passwords(text, fault);
    expect(users.empty() != fault.empty(), "users, or what is wrong");

    const auto request = view::parse_target(text);
    if (!request) return 0;
    for (const std::string& part : request->path) {
        expect(!part.empty() && part != "." && part != ".." && part.find('/') == std::string::npos &&
                   part.find('\0') == std::string::npos,
               "a part of a path stays one");
    }
    const std::string again = written_out(*request);
    if (again.size() <= view::LongestTarget) {
        const auto same = view::parse_target(again);
        expect(same && same->path == request->path && same->words == request->words, "the same, written out");
    }
    view::Reply reply = stand.api->answer(*request, {}, false);
    if (auto* const job = std::get_if<view::Job>(&reply)) reply = (*job)();
    if (auto* const answer = std::get_if<view::Answer>(&reply)) check_answer(std::move(*answer));
    return 0;
}
