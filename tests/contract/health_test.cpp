#include "contract/health.h"

#include <functional>

#include <gtest/gtest.h>

using contract::GatewayFacts;
using contract::Level;
using contract::MeterFacts;

namespace {

constexpr std::int64_t Now = 1709380800;

struct Case {
    GatewayFacts here;
    MeterFacts meter;
};

/// A KM5 that is read as it should be, for an hour.
Case healthy() {
    Case it;
    it.here.now = Now;
    it.here.storage = {.there = true,
                       .mounted = true,
                       .read_only = false,
                       .usable = true,
                       .free = 50'000'000,
                       .size = 100'000'000,
                       .out_of_inodes = false};
    it.here.service = contract::ServiceState::Answers;
    it.here.general_written = Now - 3600;
    it.here.general_meters = {"m1"};
    it.here.general_end = "Start \"run_main\" driver iterations";
    contract::Process process;
    process.pid = 7;
    process.words = {"KM5", "-r", "m1"};
    process.uuids = {"m1"};
    process.family = contract::KM5;
    process.has_port = true;
    it.here.processes = {process};
    MeterFacts& meter = it.meter;
    meter.meter = {.uuid = "m1", .family = contract::KM5, .model = "KM5-2", .serial = "12345678", .systems = {1}};
    meter.processes = {process};
    meter.started = Now - 3600;
    meter.open_port = contract::OpenPort::Open;
    meter.device = {.name = "/dev/ttyS1",
                    .state = contract::DeviceState::There,
                    .number = 0,
                    .usable = true,
                    .owner = "root:dialout 660"};
    meter.service.state = contract::ServiceState::Answers;
    meter.service.serial = 12345678;
    meter.service.port = "/dev/ttyS1";
    meter.service.manufacturer = "km-5-2";
    meter.service.systems = {"heating"};
    meter.silence.last_answer = Now - 20;
    meter.log_is_there = true;
    meter.log_written = Now - 10;
    meter.systems = {{.n = 1,
                      .connected = 1,
                      .value = Now - 20,
                      .clock = Now - 25,
                      .clock_read = Now - 25,
                      .state = "pass over",
                      .hourly = Now - 1800,
                      .daily = Now - 40000}};
    return it;
}

std::vector<std::string> words(const contract::Verdict& verdict) {
    std::vector<std::string> result;
    for (const auto& reason : verdict.reasons) result.push_back(reason.word);
    return result;
}

void make_silent(MeterFacts& meter, int tries, int with_bytes) {
    meter.silence = {
        .tries = tries, .with_bytes = with_bytes, .since = Now - 100, .until = Now - 10, .last_answer = Now - 120};
}
void age_values(MeterFacts& meter, std::int64_t age) {
    meter.systems[0].value = Now - age;
    meter.silence.last_answer = Now - age;
    meter.log_written = std::min(meter.log_written, Now - 70);
}
contract::Flag flag(contract::FlagKind kind, const std::string& uuid = "") {
    return {.kind = kind, .path = "/tmp/flag", .uuid = uuid, .since = Now - 60, .owner = "root", .text = ""};
}

struct Row {
    const char* name;
    std::function<void(Case&)> change;
    const char* reason;  // "" for none
    Level level;
};

TEST(Health, EachTroubleIsToldByItsCause) {
    using enum contract::ServiceState;
    const Row rows[] = {
        {"nothing", [](Case&) {}, "", Level::Ok},
        {"values in the pause between two passes", [](Case& it) { age_values(it.meter, 400); }, "", Level::Ok},
        {"hour change", [](Case& it) { age_values(it.meter, 760); }, "", Level::Ok},
        {"old values", [](Case& it) { age_values(it.meter, 800); }, "values-old", Level::Critical},
        {"old values, and a long archive is read",
         [](Case& it) {
             it.meter.systems[0].value = Now - 3000;
             it.meter.systems[0].clock.reset();
             it.meter.systems[0].hourly = Now - 6000;
             it.meter.systems[0].daily = Now - 50000;
         },
         "", Level::Ok},
        {"neighbours on the line wait for each other",
         [](Case& it) {
             it.meter.processes[0].uuids = {"m1", "m2", "m3"};
             age_values(it.meter, 1000);
         },
         "", Level::Ok},
        {"silence, soon", [](Case& it) { make_silent(it.meter, 21, 0); }, "nothing-heard", Level::Warning},
        {"a single question", [](Case& it) { make_silent(it.meter, 3, 0); }, "", Level::Ok},
        {"silence, for long",
         [](Case& it) {
             make_silent(it.meter, 21, 0);
             age_values(it.meter, 2000);
         },
         "nothing-heard", Level::Critical},
        {"noise", [](Case& it) { make_silent(it.meter, 21, 20); }, "no-answer", Level::Warning},
        {"a broken end of an answer", [](Case& it) { make_silent(it.meter, 21, 1); }, "nothing-heard", Level::Warning},
        {"another type",
         [](Case& it) {
             make_silent(it.meter, 21, 0);
             it.meter.service.manufacturer = "vis-t";
         },
         "wrong-family", Level::Critical},
        {"another type that answers all the same", [](Case& it) { it.meter.service.manufacturer = "vis-t"; }, "",
         Level::Ok},
        {"AT-T", [](Case& it) { it.meter.kind_fault = "isATT_mustbe = no, isATT = yes"; }, "wrong-family",
         Level::Critical},
        {"another serial number",
         [](Case& it) {
             make_silent(it.meter, 21, 0);
             it.meter.service.serial = 7;
         },
         "other-meter", Level::Critical},
        {"another VIST", [](Case& it) { it.meter.sees_serial_fault = true; }, "other-meter", Level::Critical},
        {"an SA-94 that nobody understands", [](Case& it) { it.meter.sees_description_fault = true; }, "no-answer",
         Level::Critical},
        {"held bus beats silence",
         [](Case& it) {
             make_silent(it.meter, 21, 0);
             it.here.flags = {flag(contract::FlagKind::PauseAll)};
         },
         "bus-held", Level::Warning},
        {"a pause that does not hold this port",
         [](Case& it) {
             it.meter.service.alias = "serial485.1";
             it.here.flags = {flag(contract::FlagKind::Pause)};
         },
         "", Level::Ok},
        {"the daemon's own flags",
         [](Case& it) {
             it.here.flags = {flag(contract::FlagKind::ExtdsPause), flag(contract::FlagKind::DriverLock, "m1"),
                              flag(contract::FlagKind::ForceUpdate, "m1")};
         },
         "", Level::Ok},
        {"port gone", [](Case& it) { it.meter.open_port = contract::OpenPort::Gone; }, "port-gone", Level::Critical},
        {"port closed", [](Case& it) { it.meter.open_port = contract::OpenPort::Closed; }, "port-closed",
         Level::Critical},
        {"port missing",
         [](Case& it) {
             it.meter.open_port = contract::OpenPort::Closed;
             it.meter.device.state = contract::DeviceState::Missing;
         },
         "port-missing", Level::Critical},
        {"no terminal",
         [](Case& it) {
             it.meter.open_port = contract::OpenPort::Closed;
             it.meter.device.state = contract::DeviceState::NoTerminal;
         },
         "port-no-terminal", Level::Critical},
        {"no settings",
         [](Case& it) {
             it.meter.open_port = contract::OpenPort::Closed;
             it.meter.device = {};
             it.meter.service = {};
             it.meter.service.state = Off;
         },
         "service-off", Level::Critical},
        {"unknown uuid",
         [](Case& it) {
             it.meter.open_port = contract::OpenPort::Closed;
             it.meter.device = {};
             it.meter.service = {};
             it.meter.service.state = Answers;
         },
         "uuid-unknown", Level::Critical},
        {"unknown uuid of a process that has its settings",
         [](Case& it) {
             it.meter.service = {};
             it.meter.service.state = Answers;
         },
         "uuid-unknown", Level::Warning},
        {"service off, and the process reads on", [](Case& it) { it.meter.service.state = Off; }, "", Level::Ok},
        {"port that this user may not see", [](Case& it) { it.meter.open_port = contract::OpenPort::Unknown; }, "",
         Level::Ok},
        {"clock set back", [](Case& it) { it.meter.log_written = Now + 3600; }, "clock-back", Level::Critical},
        {"two processes",
         [](Case& it) {
             it.meter.processes.push_back(it.meter.processes[0]);
             make_silent(it.meter, 9, 9);
         },
         "two-writers", Level::Critical},
        {"no process", [](Case& it) { it.meter.processes.clear(); }, "no-process", Level::Critical},
        {"a meter of former days",
         [](Case& it) {
             it.meter.processes.clear();
             it.here.ports["a"].words = {"KM5", "-r", "m2"};
         },
         "not-configured", Level::Ok},
        {"keeper waits for the service",
         [](Case& it) {
             it.meter.processes.clear();
             it.meter.keeper = "3 waits for the configuration service since 02.03.2024 12:00:00";
             it.meter.service.state = Off;
         },
         "service-off", Level::Critical},
        {"keeper starts it again and again",
         [](Case& it) { it.meter.keeper = "1 is restarting again and again, 9 times so far; last exit status 1"; },
         "restarting", Level::Critical},
        {"the same, and the service is why",
         [](Case& it) {
             it.meter.keeper = "1 is restarting again and again, 9 times so far; last exit status 1";
             it.meter.service.state = Silent;
         },
         "service-silent", Level::Critical},
        {"started anew just now",
         [](Case& it) {
             it.meter.processes.clear();
             it.here.general_written = Now - 3;
         },
         "restarting", Level::Critical},
        {"hourly archives behind", [](Case& it) { it.meter.systems[0].hourly = Now - 5 * 3600; }, "archives-behind",
         Level::Warning},
        {"daily archives behind", [](Case& it) { it.meter.systems[0].daily = Now - 27 * 3600; }, "archives-behind",
         Level::Warning},
        {"daily record of this day", [](Case& it) { it.meter.systems[0].daily = Now - 25 * 3600; }, "", Level::Ok},
        {"no archives", [](Case& it) { it.meter.systems[0].hourly.reset(); }, "archives-behind", Level::Warning},
        {"no archives, in the first half hour",
         [](Case& it) {
             it.meter.systems[0].hourly.reset();
             it.meter.started = Now - 1200;
         },
         "first-half-hour", Level::Ok},
        {"archives that are being read",
         [](Case& it) {
             it.meter.systems[0].hourly = Now - 9 * 3600;
             it.meter.systems[0].state = "reads hourly archive";
         },
         "archives-read", Level::Ok},
        {"archives held by a neighbour",
         [](Case& it) {
             it.meter.systems[0].hourly = Now - 5 * 3600;
             it.here.flags = {flag(contract::FlagKind::ReportLock, "m1")};
         },
         "archives-held", Level::Warning},
        {"what follows from silence is not told",
         [](Case& it) {
             make_silent(it.meter, 21, 0);
             it.meter.systems[0].hourly = Now - 500000;
         },
         "nothing-heard", Level::Warning},
        {"no values yet, just started",
         [](Case& it) {
             it.meter.started = Now - 10;
             it.meter.systems = {{}};
             it.meter.silence = {};
         },
         "", Level::Ok},
        {"no values since the start",
         [](Case& it) {
             it.meter.systems = {{}};
             it.meter.silence = {};
         },
         "values-old", Level::Critical},
        {"no heat system, so never asked",
         [](Case& it) {
             it.meter.systems = {{}};
             it.meter.silence = {};
             it.meter.service.systems.clear();
         },
         "settings", Level::Critical},
        {"a neighbour whose archive is read",
         [](Case& it) {
             age_values(it.meter, 3000);
             it.meter.neighbour_log_written = Now - 1;
         },
         "line-busy", Level::Warning},
        {"a copy of files", [](Case& it) { it.here.live = false; }, "copy", Level::Unknown},
    };
    for (const Row& row : rows) {
        Case it = healthy();
        row.change(it);
        const contract::Verdict verdict = judge(it.meter, it.here);
        const std::vector<std::string> expected =
            *row.reason == '\0' ? std::vector<std::string>{} : std::vector<std::string>{row.reason};
        EXPECT_EQ(words(verdict), expected) << row.name;
        EXPECT_EQ(verdict.level, row.level) << row.name;
        for (const auto& reason : verdict.reasons) EXPECT_FALSE(reason.text.empty()) << row.name;
    }
}

TEST(Health, OfTheGateway) {
    using enum contract::ServiceState;
    const Row rows[] = {
        {"nothing", [](Case&) {}, "", Level::Ok},
        {"missing", [](Case& it) { it.here.storage = {}; }, "storage-missing", Level::Critical},
        {"read-only", [](Case& it) { it.here.storage.read_only = true; }, "storage-read-only", Level::Critical},
        {"full", [](Case& it) { it.here.storage.free = 100; }, "storage-full", Level::Critical},
        {"no inodes", [](Case& it) { it.here.storage.out_of_inodes = true; }, "storage-full", Level::Critical},
        {"nearly full", [](Case& it) { it.here.storage.free = 1'000'000; }, "storage-full", Level::Warning},
        {"not mounted", [](Case& it) { it.here.storage.mounted = false; }, "storage-not-mounted", Level::Warning},
        {"off", [](Case& it) { it.here.service = Off; }, "service-off", Level::Warning},
        {"silent", [](Case& it) { it.here.service = Silent; }, "service-silent", Level::Warning},
        {"nonsense", [](Case& it) { it.here.service = Nonsense; }, "service-nonsense", Level::Warning},
        {"mistake", [](Case& it) { it.here.ports["a"].problems = {"a.conf:1: no uuid"}; }, "port-file",
         Level::Critical},
        {"copy",
         [](Case& it) {
             it.here.live = false;
             it.here.storage = {};
         },
         "", Level::Ok},
    };
    for (const Row& row : rows) {
        Case it = healthy();
        row.change(it);
        const contract::Verdict verdict = judge(it.here);
        const std::vector<std::string> expected =
            *row.reason == '\0' ? std::vector<std::string>{} : std::vector<std::string>{row.reason};
        EXPECT_EQ(words(verdict), expected) << row.name;
        EXPECT_EQ(verdict.level, row.level) << row.name;
    }
}

}  // namespace
