// What one archive record becomes: names, dates, quality; records that are passed over; changes of summer time.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

class Km5Lines : public Km5Stand {
  protected:
    using Km5Stand::Km5Stand;

    /// The files of subsystem 1 and what stands in them, without the marker.
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        for (const std::string& name : archive_names()) {
            if (name.front() != '_') all.push_back(name + " " + archive(name));
        }
        return all;
    }
    /// A new driver reads the archive.
    void read(int type, const Km5Setup& setup = {}) {
        start_described(meter, setup);
        ASSERT_TRUE(driver->get_archives(type));
    }

    sim::Km5Meter meter{{.model = 6}};
};

const sim::Km5Record Record = {.at = "2024-03-02 10:00",
                               .ta = 1,
                               .P1 = 2,
                               .P2 = 3,
                               .P3 = 4,
                               .T1 = 5,
                               .T2 = 6,
                               .T3 = 7,
                               .IM1 = 8,
                               .IM2 = 9,
                               .Vi = 10,
                               .IV1 = 11,
                               .IV2 = 12,
                               .IQ = 13,
                               .IT = 14};

sim::Km5Record dated(const char* at) {
    sim::Km5Record record = Record;
    record.at = at;
    return record;
}

TEST_F(Km5Lines, AnHourlyRecordOfModel2IsTenLinesAndItsAveragesAreAnHourEarlier) {
    meter.swap_for({.model = 2});
    meter.store_hourly(Record);
    read(0);
    EXPECT_EQ(lines(), (std::vector<std::string>{"A1 1709373600,192,13.000000\n", "A12 1709373600,192,8.000000\n",
                                                 "A14 1709373600,192,9.000000\n", "A17 1709370000,192,2.000000\n",
                                                 "A18 1709370000,192,3.000000\n", "A20 1709370000,192,5.000000\n",
                                                 "A21 1709370000,192,6.000000\n", "A4 1709373600,192,14.000000\n",
                                                 "A6 1709373600,192,11.000000\n", "A8 1709373600,192,12.000000\n"}));
}

TEST_F(Km5Lines, ADailyRecordsAveragesAreADayEarlier) {
    meter.swap_for({.model = 2});
    meter.store_daily(dated("2024-03-02 00:00"));
    read(1);
    EXPECT_EQ(lines(), (std::vector<std::string>{"A29 1709337600,192,13.000000\n", "A32 1709337600,192,14.000000\n",
                                                 "A34 1709337600,192,11.000000\n", "A36 1709337600,192,12.000000\n",
                                                 "A40 1709337600,192,8.000000\n", "A42 1709337600,192,9.000000\n",
                                                 "A45 1709251200,192,2.000000\n", "A46 1709251200,192,3.000000\n",
                                                 "A48 1709251200,192,5.000000\n", "A49 1709251200,192,6.000000\n"}));
}

TEST_F(Km5Lines, AMonthlyOrYearlyRecordKeepsItsNamesAndOneDate) {
    for (const int type : {2, 3}) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        meter.swap_for({.model = 6});
        meter.forget_requests();
        meter.store_monthly(dated("2024-01-01 00:00"));
        meter.store_yearly(dated("2024-01-01 00:00"));
        machine.disconnect_all(Port);
        read(type);
        EXPECT_EQ(lines(), (std::vector<std::string>{"IM1 1704067200,192,8.000000\n", "IM2 1704067200,192,9.000000\n",
                                                     "IQ 1704067200,192,13.000000\n", "IT 1704067200,192,14.000000\n",
                                                     "P1 1704067200,192,2.000000\n", "P2 1704067200,192,3.000000\n",
                                                     "T1 1704067200,192,5.000000\n", "T2 1704067200,192,6.000000\n"}));
        EXPECT_EQ(meter.requests(55), 0U) << "events are read with the hourly archive";
    }
    EXPECT_EQ(progress().last_request_MONTH, 0);
    EXPECT_EQ(progress().last_request_YEAR, 1704067200);
}

TEST_F(Km5Lines, OnHotWaterModel1StoresT2AndP2UnderThirdNames) {
    meter.swap_for({.model = 1});
    meter.store_hourly(Record);
    read(0, {.systems = {"gvs1"}});
    EXPECT_EQ(archive("A19"), "1709370000,192,3.000000\n");
    EXPECT_EQ(archive("A22"), "1709370000,192,6.000000\n");
    EXPECT_EQ(archive("A18") + archive("A21"), "");
}

TEST_F(Km5Lines, OnHotWaterAnotherModelKeepsItsNames) {
    meter.swap_for({.model = 2});
    meter.store_hourly(Record);
    read(0, {.systems = {"gvs1"}});
    EXPECT_EQ(archive("A18"), "1709370000,192,3.000000\n");
    EXPECT_EQ(archive("A19") + archive("A22"), "");
}

TEST_F(Km5Lines, AModel7StoresT3OnHotWaterOnly) {
    meter.swap_for({.km56i = true, .subsystems = 2});
    meter.store_hourly(Record, 0);
    meter.store_hourly(Record, 1);
    start_described(meter, {.km56i = true, .systems = {"gvs", "heat"}});
    machine.sleep(1801);
    run();
    EXPECT_EQ(archive("A22", 1), "1709370000,192,7.000000\n");
    EXPECT_EQ(archive("A22", 2), "");
    EXPECT_EQ(archive("A21", 2), "1709370000,192,6.000000\n");
    EXPECT_EQ(archive("A19", 1), "") << "no model 7 fills P3";
}

TEST_F(Km5Lines, Model3sSecondVolumeGoesToTheThirdFile) {
    meter.swap_for({.model = 3});
    meter.store_hourly(Record);
    read(0);
    EXPECT_EQ(archive("A10"), "1709373600,192,12.000000\n");
    EXPECT_EQ(archive("A8"), "");
}

TEST_F(Km5Lines, ValuesAreWrittenWithSixDigitsOfTheirSinglePrecision) {
    meter.swap_for({.model = 2});
    meter.store_hourly({.at = "2024-03-02 10:00", .P1 = -0.1F, .T1 = 1e10F, .IM1 = 16777217.0F});
    read(0);
    EXPECT_EQ(archive("A17"), "1709370000,192,-0.100000\n");
    EXPECT_EQ(archive("A20"), "1709370000,192,10000000000.000000\n");
    EXPECT_EQ(archive("A12"), "1709373600,192,16777216.000000\n");
}

// ---- dates that are passed over

TEST_F(Km5Lines, AnHourlyRecordMoreThanAnHourAheadIsPassedOverAndTheReadingGoesOn) {
    for (const char* at : {"2024-03-02 09:00", "2024-03-02 11:06:30", "2024-03-02 11:05:00", "2024-03-02 10:00"}) {
        meter.store_hourly({.at = at});
    }
    read(0);
    EXPECT_EQ(archive("A12"), "1709370000,192,0.000000\n1709377500,192,0.000000\n1709373600,192,0.000000\n");
}

TEST_F(Km5Lines, ADailyRecordMoreThanADayAheadIsPassedOver) {
    for (const char* at : {"2024-03-04 00:00", "2024-03-03 10:05:00", "2024-03-02 00:00"})
        meter.store_daily({.at = at});
    read(1);
    EXPECT_EQ(archive("A40"), "1709460300,192,0.000000\n1709337600,192,0.000000\n");
}

TEST_F(Km5Lines, AMonthlyRecordMayLieInTheFuture) {
    meter.store_monthly({.at = "2030-01-01 00:00"});
    read(2);
    EXPECT_EQ(archive("IM1"), "1893456000,192,0.000000\n");
}

TEST_F(Km5Lines, TheDateOfTheRecordStoredLastIsRemembered) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.store_hourly({.at = "2024-03-02 08:00"});
    read(0);
    EXPECT_EQ(progress().last_request_HOUR, 1709366400);
}

TEST_F(Km5Lines, ANonsenseDateIsPassedOver) {
    meter.store_hourly({.at = "2024-03-02 08:00"});
    meter.misbehave_next(1, sim::km5_erased().on(65));
    meter.store_hourly({.at = "2024-03-02 09:00"});
    meter.store_hourly({.at = "2024-03-02 10:00"});
    read(0);
    EXPECT_EQ(archive("A12"), "1709370000,192,0.000000\n1709373600,192,0.000000\n");
}

TEST_F(Km5Lines, ADateThatNoCalendarHoldsIsCarriedOver) {
    meter.store_hourly({.at = "2024-02-30 25:00"});  // the 1st of March, and one hour of the 2nd
    read(0);
    EXPECT_EQ(archive("A12"), "1709341200,192,0.000000\n");
}

class Km5Ahead : public Km5Lines {
  protected:
    static constexpr std::time_t Now = 1709373900;  // 2024-03-02 10:05:00 UTC

    /// Whenever the meter is asked for a record or an event, the gateway's clock shows Now.
    void start() {
        start_described(meter);
        machine.disconnect_all(Port);
        machine.connect(Port, held);
    }

    WatchedMeter held{meter, [this](std::span<const std::uint8_t> request) {
                          const bool reads = request[4] == 65 || request[4] == 55;
                          if (reads) machine.step_clock(static_cast<double>(Now) - machine.seconds());
                      }};
};

TEST_F(Km5Ahead, AnHourlyRecordMayBeAWholeHourAheadAndNoSecondMore) {
    meter.store_hourly({.at = Now + 3601});
    meter.store_hourly({.at = Now + 3600});
    start();
    ASSERT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"), "1709377500,192,0.000000\n");
}

TEST_F(Km5Ahead, ADailyRecordMayBeAWholeDayAheadAndNoSecondMore) {
    meter.store_daily({.at = Now + 86401});
    meter.store_daily({.at = Now + 86400});
    start();
    ASSERT_TRUE(driver->get_archives(1));
    EXPECT_EQ(archive("A40"), "1709460300,192,0.000000\n");
}

TEST_F(Km5Ahead, AnEventMayBeAWholeHourAheadAndNoSecondMore) {
    meter.store_event(Now + 3601, 0x81);
    meter.store_event(Now + 3600, 0x82);
    start();
    ASSERT_TRUE(driver->get_error_archives());
    EXPECT_EQ(archive("_A57"), "1709377500,192,2.000000\n");
}

class Km5Edge2038 : public Km5Lines {
  protected:
    Km5Edge2038() : Km5Lines("2038-01-19 02:30:00") {}
};

TEST_F(Km5Edge2038, RecordsBeyondTheEdgeOf2038ArePassedOver) {
    for (const char* at : {"2038-01-19 02:00", "2038-01-19 03:00", "2038-01-19 03:14:07", "2038-01-19 03:14:08",
                           "2038-01-19 04:00", "2099-12-31 23:00"}) {
        meter.store_hourly({.at = at});
    }
    read(0);
    EXPECT_EQ(archive("A12"), "2147479200,192,0.000000\n2147482800,192,0.000000\n2147483647,192,0.000000\n");
    EXPECT_EQ(progress().last_request_HOUR, 2147483647);
}

TEST_F(Km5Edge2038, DailyRecordsBeyondTheEdgeOf2038ArePassedOver) {
    meter.store_daily({.at = "2038-01-19 00:00"});
    meter.store_daily({.at = "2038-01-20 00:00"});
    read(1);
    EXPECT_EQ(archive("A40"), "2147472000,192,0.000000\n");
    EXPECT_EQ(archive("A45"), "2147385600,192,0.000000\n");
}

// ---- changes of summer time

class Km5Spring : public Km5Lines {
  protected:
    Km5Spring() : Km5Lines("2024-04-02 10:05:00", Berlin) {}
};

TEST_F(Km5Spring, TheAveragesOfTheDayOf23HoursAreDatedAtItsMidnight) {
    for (const char* at : {"2024-03-31 00:00", "2024-04-01 00:00", "2024-04-02 00:00"}) meter.store_daily({.at = at});
    read(1);
    EXPECT_EQ(archive("A40"), "1711839600,192,0.000000\n1711922400,192,0.000000\n1712008800,192,0.000000\n");
    EXPECT_EQ(archive("A45"), "1711753200,192,0.000000\n1711839600,192,0.000000\n1711922400,192,0.000000\n")
        << "midnights of the 30th, the 31st and the 1st";
}

TEST_F(Km5Spring, TheHourBehindTheGapHasItsAveragesAtTheHourInFrontOfIt) {
    meter.store_hourly({.at = "2024-03-31 01:00"});
    meter.store_hourly({.at = "2024-03-31 03:00"});
    read(0);
    EXPECT_EQ(archive("A12"), "1711843200,192,0.000000\n1711846800,192,0.000000\n");
    EXPECT_EQ(archive("A17"), "1711839600,192,0.000000\n1711843200,192,0.000000\n");
}

class Km5Autumn : public Km5Lines {
  protected:
    Km5Autumn() : Km5Lines("2024-10-29 10:05:00", Berlin) {}
};

TEST_F(Km5Autumn, TheAveragesOfTheDayOf25HoursAreDatedOneHourBeforeItsEnd) {
    for (const char* at : {"2024-10-27 00:00", "2024-10-28 00:00", "2024-10-29 00:00"}) meter.store_daily({.at = at});
    read(1);
    EXPECT_EQ(archive("A40"), "1729980000,192,0.000000\n1730070000,192,0.000000\n1730156400,192,0.000000\n");
    // A day back from the 28th is 01:00 of the 27th, by summer time. Midnight of the day after it, still by summer
    // time, is 23:00 of the 27th.
    EXPECT_EQ(archive("A45"), "1729893600,192,0.000000\n1730066400,192,0.000000\n1730070000,192,0.000000\n");
}

TEST_F(Km5Autumn, BothRecordsOfTheDoubledHourAreStored) {
    for (const char* at : {"2024-10-27 01:00", "2024-10-27 02:00", "2024-10-27 02:00", "2024-10-27 03:00"}) {
        meter.store_hourly({.at = at});
    }
    read(0);
    const std::string totals = archive("A12");
    EXPECT_EQ(std::count(totals.begin(), totals.end(), '\n'), 4);
    EXPECT_TRUE(totals.starts_with("1729983600,192,0.000000\n")) << totals;
    EXPECT_TRUE(totals.ends_with("1729994400,192,0.000000\n")) << totals;
    const std::string averages = archive("A17");
    EXPECT_TRUE(averages.starts_with("1729980000,192,0.000000\n")) << averages;
    EXPECT_TRUE(averages.ends_with("1729990800,192,0.000000\n")) << averages;
}

class Km5Moscow : public Km5Lines {
  protected:
    Km5Moscow() : Km5Lines("2015-01-10 10:05:00", "Europe/Moscow") {}

    void SetUp() override {
        if (!std::filesystem::exists("/usr/share/zoneinfo/Europe/Moscow")) GTEST_SKIP() << "no zone files here";
    }
};

TEST_F(Km5Moscow, TheLastChangesOfMoscowTimeMoveTheAveragesOfTheirDays) {
    for (const char* at : {"2010-03-29 00:00", "2011-03-28 00:00", "2014-10-27 00:00"}) meter.store_daily({.at = at});
    read(1);
    EXPECT_EQ(archive("A40"), "1269806400,192,0.000000\n1301256000,192,0.000000\n1414357200,192,0.000000\n");
    // Into summer time, and into the time that was meant to stay for ever: midnight of the day before. Back for good in
    // 2014, without summer time on either side: a day back is 01:00, and midnight of the day after it the record's own.
    EXPECT_EQ(archive("A45"), "1269723600,192,0.000000\n1301173200,192,0.000000\n1414357200,192,0.000000\n");
}

}  // namespace
