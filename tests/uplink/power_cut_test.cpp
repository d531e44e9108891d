// The gateway's power is cut before and behind every durable write of the uplink. What it then finds is at most older
// than what was confirmed: nothing of the archives is missing in the end.

#include <random>

#include "contract/archive_lines.h"
#include "uplink/cut_storage.h"
#include "uplink/stand.h"

using uplink::State;

namespace {

constexpr const char* Names[] = {"A1", "A4", "A29", "_A57"};
constexpr std::size_t Rounds = 6;

std::string path_of(const char* name) {
    return std::string("/mnt/storage/m1/1/tc_archives/") + name;
}

void send_all(Life& life, Stream& stream) {
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
}

TEST(PowerCut, LosesNoLineAtAnyMoment) {
    Scene scene;
    CutStorage storage;
    Stream stream;
    storage.clock = [&] { return stream.messages.size(); };  // how many messages it has got by then
    {
        storage.is_recording = true;
        State state("/state", CutStorage::Name);
        Life life(state);
        life.connect();
        for (std::size_t round = 0; round < Rounds; ++round) {
            for (const char* const name : Names) {
                const std::string before = round == 3 ? "" : scene.file(path_of(name)).value_or("");  // emptied once
                scene.write(path_of(name), before + hour_lines(static_cast<int>(round) * 10, 10));
            }
            send_all(life, stream);
        }
    }
    storage.is_recording = false;
    ASSERT_GT(storage.moments.size(), 50U);

    std::map<std::string, std::string> files;
    for (const char* const name : Names) files[name] = *scene.file(path_of(name));
    std::mt19937 chance(15);
    for (std::size_t i = 0; i < storage.moments.size(); ++i) {
        for (const auto rest : {CutStorage::Rest::Durable, CutStorage::Rest::Everything, CutStorage::Rest::Something,
                                CutStorage::Rest::Something}) {
            SCOPED_TRACE(testing::Message() << "moment " << i);
            storage.files = CutStorage::after_cut(storage.moments[i].files, rest, chance);
            // What the archives lose with the power was not durable: their last line. It is written again, and differs.
            for (const auto& [name, text] : files) {
                const std::string kept = text.substr(0, text.size() - 10) + std::string(10, '\0') + '\n';
                scene.write(path_of(name.c_str()), chance() % 2 == 0 ? text : kept + hour_lines(99, 1));
            }
            // Of what came later the stream knows nothing.
            Stream after;
            const auto count = static_cast<std::ptrdiff_t>(storage.moments[i].time);
            after.messages.assign(stream.messages.begin(), stream.messages.begin() + count);
            State state("/state", CutStorage::Name);
            EXPECT_FALSE(state.was_broken());
            Life life(state);
            life.connect();
            send_all(life, after);
            const std::vector<std::string> lines = after.lines();
            const std::set<std::string> arrived(lines.begin(), lines.end());
            for (const char* const name : Names) {
                std::istringstream in(*scene.file(path_of(name)));
                for (std::string line; std::getline(in, line);) {
                    contract::ArchiveLine parsed;
                    if (!contract::parse_archive_line(line, parsed)) continue;
                    const std::string value(parsed.value.substr(0, parsed.value.find('.')));
                    ASSERT_TRUE(arrived.contains("m1/" + std::string(name) + ' ' + std::to_string(parsed.time) +
                                                 " 192 " + value + ".0"))
                        << line;
                }
            }
        }
    }
}

}  // namespace
