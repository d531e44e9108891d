// Single-bus mode: drivers of any kind in turn on one descriptor, with drivers of the test's own making.

#include "driver/single_bus.h"

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/uni_log.h"
#include "support/child.h"
#include "support/plain_driver.h"
#include "support/scene.h"

namespace {

class Bus;

/// Writes down what the scheduler does with it.
class BusDriver final : public PlainDriver {
  public:
    BusDriver(Bus& bus, const std::string& meter) : PlainDriver(meter), bus_(bus) {}

    bool need_init() override;
    void do_init() override;
    void run_main() override;
    bool is_all_archives_ok() override;

    bool wants_init = false;
    std::function<bool()> archives = [] { return true; };

  private:
    Bus& bus_;
};

class Bus : public ::testing::Test {
  protected:
    explicit Bus(const std::string& start = "2024-03-02 10:00:00") : scene(start) {
        scene.gateway.add_device("/dev/a");
    }

    void meter(const std::string& uuid, const std::string& manufacturer, const sim::MeterSettings& settings = {}) {
        sim::MeterSettings all = settings;
        all.manufacturer = manufacturer;
        if (all.port_name.empty()) all.port_name = "/dev/a";
        scene.service.set_meter(uuid, all);
    }
    void two_meters() {
        meter("u1", "known", {.serial = 11, .speed = 2400, .parity = "E"});
        meter("u2", "known", {.serial = 22, .speed = 19200, .parity = "N"});
    }
    /// The settings that come are printed; that is nobody's business here.
    void add(const std::vector<std::string>& uuids) {
        stdout_of([&] { bus.add_drivers(uuids); });
    }
    /// So many whole passes over all drivers; the scheduler ends at the last question of the last one.
    void run_passes(int count) {
        passes_left = count;
        scene.gateway.run_for(3600, [this] { bus.run(); });
    }

    Scene scene;
    SingleBus bus{[this](const std::string& manufacturer, const std::string& uuid) {
        asked_for.push_back(manufacturer + " " + uuid);
        if (uuid == last_answered) scene.gateway.set_service_address("http://127.0.0.1:1/");
        if (manufacturer != "known") return std::unique_ptr<HCDBaseDriver>();
        auto driver = std::make_unique<BusDriver>(*this, uuid);
        driver->hook_ctx = 42;
        drivers.push_back(driver.get());
        return std::unique_ptr<HCDBaseDriver>(std::move(driver));
    }};

  public:
    /// Called by the last driver of each pass.
    void pass_is_over() {
        if (--passes_left <= 0) throw sim::RunEnded{};
    }
    void note(const std::string& what) { notes.push_back(what); }

    std::vector<std::string> asked_for;
    std::string last_answered;  // no service is there behind this uuid
    std::vector<BusDriver*> drivers;
    std::vector<std::string> notes;
    int passes_left = 1;
    std::function<void(BusDriver&)> at_turn = [](BusDriver&) {};
};

bool BusDriver::need_init() {
    bus_.at_turn(*this);
    bus_.note(uuid + " need_init");
    return wants_init;
}

void BusDriver::do_init() {
    bus_.note(uuid + " do_init");
}

void BusDriver::run_main() {
    bus_.note(uuid + " run_main");
}

bool BusDriver::is_all_archives_ok() {
    bus_.note(uuid + " archives");
    const bool ok = archives();
    if (this == bus_.drivers.back()) bus_.pass_is_over();
    return ok;
}

using Notes = std::vector<std::string>;

TEST_F(Bus, EachUuidGetsADriverByItsManufacturerAndItsSettings) {
    meter("u1", "known", {.serial = 11, .speed = 2400, .parity = "E", .system_types = {"heat", "", "water"}});
    meter("u2", "known", {.serial = 22, .port_name = "/dev/b", .speed = 19200});
    add({"u1", "u2"});
    EXPECT_EQ(asked_for, (Notes{"known u1", "known u2"}));
    ASSERT_EQ(drivers.size(), 2U);
    EXPECT_EQ(drivers[0]->get_uuid(), "u1");
    EXPECT_EQ(drivers[0]->settings().tc_sernum, 11U);
    EXPECT_EQ(drivers[0]->settings().port_name, "/dev/a");
    EXPECT_EQ(drivers[0]->settings().tc_baud, 1);
    EXPECT_EQ(drivers[0]->settings().tc_parity, 1);
    EXPECT_EQ(drivers[0]->settings().subsystem_count, 2);
    EXPECT_EQ(drivers[0]->settings().system_type[0], "heat");
    EXPECT_EQ(drivers[0]->settings().system_type[2], "water");
    EXPECT_EQ(drivers[0]->tty_send, &exchange_read_bytes);
    EXPECT_EQ(drivers[0]->hook_ctx, 0U);
    EXPECT_EQ(drivers[1]->settings().tc_sernum, 22U);
    EXPECT_EQ(drivers[1]->settings().port_name, "/dev/b");
    EXPECT_EQ(drivers[1]->settings().tc_baud, 4);
    EXPECT_EQ(drivers[1]->settings().tc_parity, 2);
}

TEST_F(Bus, AllSettingsAreReadBeforeTheFirstDriverRuns) {
    two_meters();
    add({"u1", "u2"});
    EXPECT_EQ(scene.service.requests().size(), 2U);
    EXPECT_TRUE(notes.empty());
    run_passes(3);
    EXPECT_EQ(scene.service.requests().size(), 2U);
}

TEST_F(Bus, AnUnknownManufacturerGivesItsSettingsToTheDriverBeforeIt) {
    two_meters();
    meter("u3", "nobody", {.serial = 33, .port_name = "/dev/c", .speed = 115200, .system_types = {"x"}});
    add({"u1", "u2", "u3"});
    ASSERT_EQ(drivers.size(), 2U);
    EXPECT_EQ(drivers[0]->settings().tc_sernum, 11U);
    EXPECT_EQ(drivers[1]->get_uuid(), "u2");
    EXPECT_EQ(drivers[1]->settings().tc_sernum, 33U);
    EXPECT_EQ(drivers[1]->settings().port_name, "/dev/c");
    EXPECT_EQ(drivers[1]->settings().tc_baud, 7);
    EXPECT_EQ(drivers[1]->settings().system_type[0], "x");
    run_passes(1);
    EXPECT_EQ(cfgetospeed(&scene.gateway.line_of("/dev/a")), static_cast<speed_t>(B19200))
        << "the line is still set by the driver's own uuid";
}

TEST_F(Bus, SystemsThatAnUnknownManufacturerDoesNotHaveAreTakenFromTheDriverBeforeIt) {
    meter("u1", "known", {.serial = 11, .system_types = {"heat", "gvs", "water"}});
    meter("u2", "nobody", {.serial = 22, .system_types = {"", "x"}});
    add({"u1", "u2"});
    ASSERT_EQ(drivers.size(), 1U);
    EXPECT_EQ(drivers[0]->settings().subsystem_count, 1);
    EXPECT_EQ(drivers[0]->settings().system_type, (std::array<std::string, 6>{"", "x"}));
}

TEST_F(Bus, AnUnknownManufacturerOfTheFirstUuidsIsPassedOver) {
    two_meters();
    meter("u0", "nobody", {.serial = 33, .port_name = "/dev/c", .speed = 115200, .system_types = {"x"}});
    add({"u0", "u1", "u2"});
    ASSERT_EQ(drivers.size(), 2U);
    EXPECT_EQ(drivers[0]->get_uuid(), "u1");
    EXPECT_EQ(drivers[0]->settings().tc_sernum, 11U);
    EXPECT_EQ(drivers[0]->settings().port_name, "/dev/a");
    run_passes(1);
    EXPECT_EQ(cfgetospeed(&scene.gateway.line_of("/dev/a")), static_cast<speed_t>(B19200));
}

TEST_F(Bus, ALostRequestForALaterUuidLeavesTheDriverBeforeItWithoutSettings) {
    two_meters();
    last_answered = "u1";
    EXPECT_EQ(stderr_of([this] { add({"u1", "u2"}); }), "Error while sending data!\n");
    EXPECT_EQ(asked_for.back(), " ");
    ASSERT_EQ(drivers.size(), 1U);
    EXPECT_EQ(drivers[0]->get_uuid(), "u1");
    EXPECT_EQ(drivers[0]->settings().tc_sernum, 0U);
    EXPECT_EQ(drivers[0]->settings().port_name, "");
}

TEST_F(Bus, NoKnownManufacturerAtAllEndsTheProcess) {
    meter("u1", "nobody");
    const ChildEnd end = in_child([this] {
        UniLog general(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
        g_log = &general;
        bus.add_drivers({"u1"});
        return 0;
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_NE(end.err.find("No meter of a known manufacturer"), std::string::npos);
    const std::string general = scene.file("/tmp/uni_logs.general.txt").value_or("");
    EXPECT_NE(general.find("nobody"), std::string::npos);
    EXPECT_NE(general.find("u1"), std::string::npos);
}

TEST_F(Bus, AServiceThatAnswersNothingEndsTheProcess) {
    two_meters();
    scene.service.answer_with("");
    const ChildEnd end = in_child([this] {
        bus.add_drivers({"u1"});
        return 0;
    });
    EXPECT_EQ(end.status, 1);
}

// ---- the walk

TEST_F(Bus, DriversHaveTheirTurnsInTheOrderOfTheUuids) {
    two_meters();
    add({"u2", "u1"});
    run_passes(2);
    const Notes pass = {"u2 need_init", "u2 archives", "u1 need_init", "u1 archives"};
    Notes wanted = pass;
    wanted.insert(wanted.end(), pass.begin(), pass.end());
    EXPECT_EQ(notes, wanted);
}

TEST_F(Bus, ADriverRunsOnlyWhileItWantsToBeInitialised) {
    two_meters();
    add({"u1", "u2"});
    drivers[0]->wants_init = true;
    run_passes(1);
    EXPECT_EQ(notes,
              (Notes{"u1 need_init", "u1 do_init", "u1 run_main", "u1 archives", "u2 need_init", "u2 archives"}));
    notes.clear();
    drivers[0]->wants_init = false;
    run_passes(1);
    EXPECT_EQ(notes, (Notes{"u1 need_init", "u1 archives", "u2 need_init", "u2 archives"}));
}

TEST_F(Bus, EachDriverFindsTheLineSetForItselfInEveryPass) {
    two_meters();
    add({"u1", "u2"});
    std::vector<speed_t> speeds;
    std::vector<bool> parities;
    at_turn = [&](BusDriver&) {
        speeds.push_back(cfgetospeed(&scene.gateway.line_of("/dev/a")));
        parities.push_back((scene.gateway.line_of("/dev/a").c_cflag & PARENB) != 0);
    };
    run_passes(2);
    EXPECT_EQ(speeds, (std::vector<speed_t>{B2400, B19200, B2400, B19200}));
    EXPECT_EQ(parities, (std::vector<bool>{true, false, true, false}));
    EXPECT_EQ(scene.gateway.times_line_set("/dev/a"), 4);
    EXPECT_EQ(scene.gateway.line_of("/dev/a").c_cc[VTIME], 6);
}

TEST_F(Bus, TheLineIsSetAnewAlsoWhenNothingHasChanged) {
    meter("u1", "known");
    add({"u1"});
    run_passes(5);
    EXPECT_EQ(scene.gateway.times_line_set("/dev/a"), 5);
}

TEST_F(Bus, TheDeviceOfTheFirstDriverServesAll) {
    scene.gateway.add_device("/dev/b");
    meter("u1", "known");
    meter("u2", "known", {.port_name = "/dev/b"});
    add({"u1", "u2"});
    run_passes(2);
    EXPECT_EQ(scene.gateway.times_line_set("/dev/a"), 4);
    EXPECT_EQ(scene.gateway.times_line_set("/dev/b"), 0);
    EXPECT_GT(drivers[0]->get_tty_fd(), 0);
    EXPECT_EQ(drivers[0]->get_tty_fd(), drivers[1]->get_tty_fd());
}

TEST_F(Bus, ADeviceThatDoesNotOpenIsTriedAgainForEveryDriver) {
    meter("u1", "known", {.port_name = "/dev/later"});
    meter("u2", "known", {.port_name = "/dev/later"});
    add({"u1", "u2"});
    int turns = 0;
    std::vector<bool> open;
    at_turn = [&](BusDriver& driver) {
        open.push_back(driver.get_tty_fd() > 0);
        if (++turns == 3) scene.gateway.add_device("/dev/later");
    };
    run_passes(3);
    EXPECT_EQ(open, (std::vector<bool>{false, false, false, true, true, true}));
    EXPECT_EQ(scene.gateway.times_line_set("/dev/later"), 3);
}

TEST_F(Bus, TheNextDriversDeviceServesAllWhenTheFirstOnesDoesNotOpen) {
    meter("u1", "known", {.port_name = "/dev/none"});
    meter("u2", "known");
    add({"u1", "u2"});
    run_passes(2);
    EXPECT_EQ(scene.gateway.times_line_set("/dev/a"), 3);
    EXPECT_GT(drivers[0]->get_tty_fd(), 0);
}

TEST_F(Bus, OpeningTheLineTellsWhetherItIsOpen) {
    PortRecord record;
    record.port_name = "/dev/none";
    EXPECT_FALSE(bus.open_line(record));
    record.port_name = "/dev/a";
    EXPECT_TRUE(bus.open_line(record));
    record.port_name = "/dev/none";
    EXPECT_TRUE(bus.open_line(record)) << "the port is open once and for ever";
}

TEST_F(Bus, TheLoopHasNoSleepOfItsOwn) {
    two_meters();
    add({"u1", "u2"});
    run_passes(100);
    EXPECT_TRUE(scene.gateway.sleeps().empty());
}

// ---- the outside data service. 2024-03-02 10:00 is one hour behind a third hour since the epoch, 12:00 is one.

class BusInAThirdHour : public Bus {
  protected:
    BusInAThirdHour() : Bus("2024-03-02 12:00:00") {
        two_meters();
        add({"u1", "u2"});
        at_turn = [this](BusDriver& driver) {
            if (&driver == drivers[0]) seen.push_back(scene.file("/tmp/extds_pause").value_or("-"));
        };
    }
    Notes seen;  ///< the file's text at the first driver's turn of each pass
};

TEST_F(BusInAThirdHour, TheFirstPassWritesThePauseAndThePassBehindAGoodOneRemovesIt) {
    run_passes(3);
    EXPECT_EQ(seen, (Notes{"7200", "-", "-"}));
}

TEST_F(BusInAThirdHour, ThePauseStaysWhileSomeArchiveIsBehind) {
    drivers[0]->archives = [] { return false; };
    run_passes(3);
    EXPECT_EQ(seen, (Notes{"7200", "7200", "7200"})) << "the last driver's yes does not cover the first one's no";
    drivers[0]->archives = [] { return true; };
    drivers[1]->archives = [] { return false; };
    run_passes(2);
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "7200");
}

TEST_F(BusInAThirdHour, ThePauseComesBackWhenAnArchiveFallsBehind) {
    int pass = 0;
    drivers[1]->archives = [&pass] { return ++pass != 2; };
    run_passes(4);
    EXPECT_EQ(seen, (Notes{"7200", "-", "7200", "-"}));
}

class BusInAnotherHour : public Bus {
  protected:
    BusInAnotherHour() : Bus("2024-03-02 11:59:00") {
        two_meters();
        add({"u1", "u2"});
    }
};

TEST_F(BusInAnotherHour, TheFirstPassNeitherWritesNorRemovesThePause) {
    run_passes(1);
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
    scene.write("/tmp/extds_pause", "55");
    run_passes(1);
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "55");
}

TEST_F(BusInAnotherHour, APassBehindAGoodOneRemovesThePause) {
    scene.write("/tmp/extds_pause", "55");
    run_passes(2);
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
}

TEST_F(BusInAnotherHour, ThePauseIsWrittenOnceTheThirdHourComes) {
    drivers[0]->archives = [this] {
        scene.gateway.sleep(30);
        return false;
    };
    run_passes(2);
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
    run_passes(1);
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "7200");
}

}  // namespace
