#include "driver/hcd_base_driver.h"

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "driver/line_settings.h"
#include "support/configured.h"
#include "support/plain_driver.h"
#include "support/scene.h"
#include "support/scripted_meter.h"

namespace {

class BaseDriver : public ::testing::Test {
  protected:
    Scene scene{"2024-03-02 10:00:00"};
    PlainDriver driver;
};

// ---- a driver that was never configured

TEST_F(BaseDriver, ThatWasNeverConfiguredIsOfflineAndHasNoName) {
    EXPECT_TRUE(driver.is_offline());
    EXPECT_EQ(driver.status, "offline");
    EXPECT_EQ(driver.get_log_name(), "NO_DRIVER_NAME");
}

TEST_F(BaseDriver, ThatWasNeverConfiguredHasTheSettingsOfNone) {
    EXPECT_EQ(driver.get_uuid(), "na");
    EXPECT_EQ(driver.uuid_list, std::vector<std::string>{});
    EXPECT_EQ(driver.settings().tc_sernum, 0xFFFFFFFFU);
    EXPECT_EQ(driver.seen_serial, 0xFFFFFFFFU);
    EXPECT_EQ(driver.settings().tc_baud, -1);
    EXPECT_EQ(driver.settings().tc_parity, -1);
    EXPECT_EQ(driver.get_tty_fd(), -1);
    EXPECT_EQ(driver.settings().is_km56i, 0);
    EXPECT_FALSE(driver.settings().use_pause_flag);
    EXPECT_EQ(driver.settings().port_name, "");
    EXPECT_EQ(driver.settings().subsystem_count, 0);
    for (const std::string& type : driver.settings().system_type) EXPECT_EQ(type, "");
    EXPECT_EQ(driver.last_update_time, 0);
}

TEST_F(BaseDriver, ThatWasNeverConfiguredHasNoHooks) {
    EXPECT_EQ(driver.tty_send, nullptr);
    EXPECT_EQ(driver.busy_hook, nullptr);
    EXPECT_EQ(driver.data_hook, nullptr);
    EXPECT_EQ(driver.hook_ctx, 0U);
    driver.set_busy(1);
    driver.data_notify(nullptr, 1, 2, 3);
}

TEST_F(BaseDriver, AnswersForItselfWhereNoFamilyDoes) {
    EXPECT_EQ(driver.max_archive_records(), 1008);
    EXPECT_EQ(driver.get_update_interval(), 360U);
    EXPECT_EQ(driver.get_buffer_limit(), 0);
    EXPECT_TRUE(driver.is_ready());
    EXPECT_TRUE(driver.is_all_archives_ok());
    EXPECT_FALSE(driver.need_init());
    driver.open_tty();
    driver.on_tick(1);
    driver.run_main();
    driver.do_init();
    EXPECT_EQ(driver.get_tty_fd(), -1);
    EXPECT_EQ(scene.gateway.exchanges().size(), 0U);
    EXPECT_TRUE(scene.gateway.sleeps().empty());
}

// ---- settings

TEST_F(BaseDriver, TakesItsUuid) {
    driver.set_uuid("u1");
    EXPECT_EQ(driver.get_uuid(), "u1");
    EXPECT_EQ(driver.uuid, "u1");
}

TEST_F(BaseDriver, TakesSixSystemTypesAndNoSeventh) {
    for (unsigned i = 0; i < 6; ++i) driver.set_system_type(i, std::to_string(i + 1));
    const std::array<std::string, 6> six{"1", "2", "3", "4", "5", "6"};
    EXPECT_EQ(driver.settings().system_type, six);
    driver.set_system_type(6, "seventh");
    driver.set_system_type(4'000'000'000U, "seventh");
    EXPECT_EQ(driver.settings().system_type, six);
}

TEST_F(BaseDriver, KeepsTheExchangeRoutineAndTheContextOfItsHooks) {
    driver.set_tty_send(exchange_read_all, 42);
    EXPECT_EQ(driver.tty_send, &exchange_read_all);
    EXPECT_EQ(driver.hook_ctx, 42U);
    driver.set_tty_fd(7);
    EXPECT_EQ(driver.get_tty_fd(), 7);
}

// ---- hooks

std::vector<std::tuple<int, std::uintptr_t>> busy_calls;

TEST_F(BaseDriver, TellsItsBusyHookEightBitsOfTheFlag) {
    busy_calls.clear();
    driver.busy_hook = [](unsigned char flag, std::uintptr_t context) { busy_calls.emplace_back(flag, context); };
    driver.set_tty_send(exchange_read_bytes, 42);
    driver.set_busy(1);
    driver.set_busy(0);
    driver.set_busy(0x1FE);
    EXPECT_EQ(busy_calls, (std::vector<std::tuple<int, std::uintptr_t>>{{1, 42}, {0, 42}, {0xFE, 42}}));
}

std::vector<std::tuple<const std::uint8_t*, std::uintptr_t, std::uintptr_t, int, std::uintptr_t>> data_calls;

TEST_F(BaseDriver, HandsDataToItsDataHook) {
    constexpr std::uint8_t Buffer[] = {1, 2};
    data_calls.clear();
    driver.data_hook = [](const std::uint8_t* data, std::uintptr_t a, std::uintptr_t b, unsigned char flag,
                          std::uintptr_t context) { data_calls.emplace_back(data, a, b, flag, context); };
    driver.set_tty_send(exchange_read_bytes, 42);
    driver.data_notify(Buffer, 3, 4, 5);
    ASSERT_EQ(data_calls.size(), 1U);
    EXPECT_EQ(data_calls[0], std::make_tuple(Buffer, 3, 4, 5, 42));
}

// ---- the serial number that a meter reports

TEST_F(BaseDriver, TakesTheFirstSerialNumberForGood) {
    EXPECT_TRUE(driver.check_serial(5));
    EXPECT_FALSE(driver.check_serial(7));
    EXPECT_TRUE(driver.check_serial(5));
}

TEST_F(BaseDriver, SerialNumberZeroIsOneToo) {
    EXPECT_TRUE(driver.check_serial(0));
    EXPECT_FALSE(driver.check_serial(5));
}

TEST_F(BaseDriver, SerialNumberWithAllBitsSetIsStillNone) {
    EXPECT_TRUE(driver.check_serial(0xFFFFFFFF));
    EXPECT_TRUE(driver.check_serial(5));
    EXPECT_FALSE(driver.check_serial(0xFFFFFFFF));
}

// ---- forced updates

class ForcedUpdate : public BaseDriver {
  protected:
    void SetUp() override { driver.set_uuid("abc"); }
};

TEST_F(ForcedUpdate, OfTheArchivesIsSeenOnceAndItsFlagIsGone) {
    scene.touch("/tmp/tvk_force_update_archives_abc");
    EXPECT_TRUE(driver.check_force_update(1));
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_archives_abc"));
    EXPECT_FALSE(driver.check_force_update(1));
}

TEST_F(ForcedUpdate, OfTheValuesIsSeenOnceAndItsFlagIsGone) {
    scene.touch("/tmp/tvk_force_update_abc");
    EXPECT_TRUE(driver.check_force_update(0));
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_abc"));
    EXPECT_FALSE(driver.check_force_update(0));
}

TEST_F(ForcedUpdate, HasTwoKindsThatDoNotMix) {
    scene.touch("/tmp/tvk_force_update_abc");
    EXPECT_FALSE(driver.check_force_update(1));
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_abc"));
    scene.touch("/tmp/tvk_force_update_archives_abc");
    EXPECT_TRUE(driver.check_force_update(0));
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_archives_abc"));
}

TEST_F(ForcedUpdate, OfAnyOtherKindIsNone) {
    for (const char* flag : {"/tmp/tvk_force_update_abc", "/tmp/tvk_force_update_archives_abc", "/tmp/_abc"}) {
        scene.touch(flag);
    }
    for (const int kind : {2, 3, -1}) EXPECT_FALSE(driver.check_force_update(kind)) << kind;
    EXPECT_EQ(scene.list("/tmp").size(), 3U);
}

TEST_F(ForcedUpdate, IsForOneMeterOnly) {
    for (const char* flag : {"/tmp/tvk_force_update", "/tmp/tvk_force_update_", "/tmp/tvk_force_update_abcd",
                             "/tmp/tvk_force_update_ab"}) {
        scene.touch(flag);
    }
    EXPECT_FALSE(driver.check_force_update(0));
    EXPECT_EQ(scene.list("/tmp").size(), 4U);
}

TEST_F(ForcedUpdate, FlagMayHoldAnything) {
    scene.write("/tmp/tvk_force_update_abc", "now\n");
    EXPECT_TRUE(driver.check_force_update(0));
}

TEST_F(ForcedUpdate, PathOfTheFlagIsCutAt255Characters) {
    driver.set_uuid(std::string(300, 'u'));
    scene.touch("/tmp/tvk_force_update_" + std::string(255 - 22, 'u'));
    EXPECT_TRUE(driver.check_force_update(0));
    EXPECT_TRUE(scene.list("/tmp").empty());
}

// ---- the update interval

TEST_F(BaseDriver, IsDueAtTheFirstTestAndAgainAfter360Seconds) {
    EXPECT_TRUE(driver.is_update_due());
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(359);
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(driver.is_update_due());
    scene.gateway.sleep(359);
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(driver.is_update_due());
}

TEST_F(BaseDriver, IsDueWhenAnUpdateWasForcedAndTheIntervalBeginsAnew) {
    driver.set_uuid("abc");
    EXPECT_TRUE(driver.is_update_due());
    scene.gateway.sleep(100);
    scene.touch("/tmp/tvk_force_update_abc");
    EXPECT_TRUE(driver.is_update_due());
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(359);
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(driver.is_update_due());
}

TEST_F(BaseDriver, ThatIsDueAnywayLeavesTheForceFlagForTheNextTest) {
    driver.set_uuid("abc");
    scene.touch("/tmp/tvk_force_update_abc");
    EXPECT_TRUE(driver.is_update_due());
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_abc"));
    EXPECT_TRUE(driver.is_update_due());
    EXPECT_FALSE(driver.is_update_due());
}

TEST_F(BaseDriver, IsNotDueByAForcedUpdateOfItsArchives) {
    driver.set_uuid("abc");
    driver.is_update_due();
    scene.touch("/tmp/tvk_force_update_archives_abc");
    EXPECT_FALSE(driver.is_update_due());
}

TEST_F(BaseDriver, IsNotDueWhileTheClockWasSetBack) {
    EXPECT_TRUE(driver.is_update_due());
    scene.gateway.step_clock(-3600);
    EXPECT_FALSE(driver.is_update_due());
    scene.gateway.sleep(3600 + 360);
    EXPECT_TRUE(driver.is_update_due());
}

class ImpatientDriver : public PlainDriver {
  public:
    unsigned get_update_interval() override { return 10; }
};

TEST_F(BaseDriver, AsksItsFamilyForTheInterval) {
    ImpatientDriver impatient;
    EXPECT_TRUE(impatient.is_update_due());
    scene.gateway.sleep(9);
    EXPECT_FALSE(impatient.is_update_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(impatient.is_update_due());
}

// ---- exchanges of a driver

class DriverExchange : public BaseDriver {
  protected:
    void SetUp() override {
        scene.gateway.connect("/dev/ttyS1", meter);
        driver.set_tty_fd(open_line("/dev/ttyS1", LineOfKm5, 3, 2));
    }

    static constexpr std::uint8_t Ask[] = {'a', 's', 'k'};
    ScriptedMeter meter;
    ExchangeAnswer rx;
};

TEST_F(DriverExchange, GoesOverItsPortAndReturnsOne) {
    meter.will_say("one");
    EXPECT_EQ(driver.send_receive(Ask, rx, 100, false), 1);
    EXPECT_EQ(rx, (ExchangeAnswer{'o', 'n', 'e'}));
    meter.will_say("two");
    EXPECT_EQ(driver.send_receive_locked(Ask, rx, 100), 1);
    EXPECT_EQ(rx, (ExchangeAnswer{'t', 'w', 'o'}));
    EXPECT_EQ(meter.heard(), (std::vector<std::string>{"ask", "ask"}));
}

TEST_F(DriverExchange, ReturnsOneAlsoWithoutAnAnswerOrAPort) {
    rx = {1, 2, 3};
    EXPECT_EQ(driver.send_receive(Ask, rx, 100, false), 1);
    EXPECT_TRUE(rx.empty());
    driver.set_tty_fd(-1);
    rx = {1, 2, 3};
    EXPECT_EQ(driver.send_receive(Ask, rx, 100, false), 1);
    EXPECT_TRUE(rx.empty());
    rx = {1, 2, 3};
    EXPECT_EQ(driver.send_receive_locked(Ask, rx, 100), 1);
    EXPECT_TRUE(rx.empty());
}

TEST_F(DriverExchange, IsHeldBackAsTheCallerSaysAndNotAsTheDriverIsSet) {
    scene.touch("/tmp/pause_tvk");
    scene.gateway.at(15, [&] { scene.remove("/tmp/pause_tvk"); });
    set_pause_flag(driver, true);
    driver.send_receive(Ask, rx, 100, false);
    EXPECT_TRUE(scene.gateway.sleeps().empty());
    set_pause_flag(driver, false);
    driver.send_receive(Ask, rx, 100, true);
    EXPECT_EQ(scene.gateway.sleeps(), (std::vector<unsigned>{10, 10}));
}

TEST_F(DriverExchange, OfTheLockedKindIsHeldBackAsTheDriverIsSet) {
    scene.touch("/tmp/pause_tvk");
    scene.gateway.at(15, [&] { scene.remove("/tmp/pause_tvk"); });
    driver.send_receive_locked(Ask, rx, 100);
    EXPECT_TRUE(scene.gateway.sleeps().empty());
    set_pause_flag(driver, true);
    driver.send_receive_locked(Ask, rx, 100);
    EXPECT_EQ(scene.gateway.sleeps(), (std::vector<unsigned>{10, 10}));
}

}  // namespace
