#include "archive/archive_holder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/scene.h"

namespace {

using Names = std::vector<std::string>;

class Holder : public ArchiveHolder {
  public:
    Holder() = default;
    explicit Holder(const std::string& meter) { uuid = meter; }

    using ArchiveHolder::default_file_count;
    using ArchiveHolder::default_files;
    using ArchiveHolder::pending_double;
    using ArchiveHolder::pending_double_q;
    using ArchiveHolder::pending_float_q;
    using ArchiveHolder::pending_int;
    using ArchiveHolder::pending_uint;
    using ArchiveHolder::uuid;
    using ArchiveHolder::uuid_list;

    bool nothing_waits() const {
        return pending_double.empty() && pending_int.empty() && pending_uint.empty() && pending_float_q.empty() &&
               pending_double_q.empty();
    }
};

/// 2023-11-14 22:13:20, which is 1700000000 in UTC.
std::tm record_date() {
    std::tm tm{};
    tm.tm_year = 123;
    tm.tm_mon = 10;
    tm.tm_mday = 14;
    tm.tm_hour = 22;
    tm.tm_min = 13;
    tm.tm_sec = 20;
    tm.tm_isdst = -1;
    return tm;
}

class ArchiveHolderTest : public ::testing::Test {
  protected:
    void SetUp() override { scene.make_tree("u"); }

    std::optional<std::string> text(const std::string& name, const std::string& directory = "tc_archives") const {
        return scene.archive("u", 1, name, directory);
    }
    void flush(int quality = 192) { holder.flush_values(record_date(), 0, quality, 1, 0); }
    void flush_q() { holder.flush_values_q(record_date(), 0, 1, 0); }

    Scene scene;
    Holder holder{"u"};
};

// ---- a new holder

TEST_F(ArchiveHolderTest, NewOneHasNoMeterAndRoomForSixWeeksOfHours) {
    Holder fresh;
    EXPECT_EQ(fresh.uuid, "");
    EXPECT_EQ(fresh.uuid_list, Names{});
    EXPECT_EQ(fresh.max_archive_records(), 1008);
    EXPECT_TRUE(fresh.nothing_waits());
}

TEST_F(ArchiveHolderTest, NewOneHasTheStandardFilesOfTheDefaultSubsystemButOpensNone) {
    const Names names{"Q",   "dQ",  "T0",  "T1", "T2",  "Thv",  "G0",   "G1",  "G2",  "dG0",
                      "dG1", "dG2", "P0",  "P1", "P2",  "V0",   "V1",   "V2",  "dV0", "dV1",
                      "dV2", "VT0", "VT1", "Tc", "dTc", "Tmin", "Tmax", "Tdt", "Toth"};
    ASSERT_EQ(names.size(), 29U);
    EXPECT_EQ(holder.default_file_count, 29U);
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(holder.default_files[i]->get_name(), names[i]);
        EXPECT_EQ(holder.default_files[i]->get_path(), "/mnt/storage//default/tc_archives/" + names[i]);
    }
    holder.close_default_files();
    EXPECT_EQ(scene.list("/mnt/storage"), Names{"u"});
}

// ---- collecting and writing

TEST_F(ArchiveHolderTest, CollectedValueWaitsForTheFlush) {
    holder.add_value("Q", 1.5);
    EXPECT_FALSE(text("Q"));
    flush();
    EXPECT_EQ(text("Q"), "1700000000,192,1.500000\n");
    EXPECT_TRUE(holder.nothing_waits());
}

TEST_F(ArchiveHolderTest, EveryKindOfValueIsWrittenAsADecimal) {
    holder.add_value("double", 12.345);
    holder.add_value("float", 10000.1F);
    holder.add_value("int", -5);
    holder.add_value("unsigned", 4294967295U);
    flush(0);
    EXPECT_EQ(text("double"), "1700000000,0,12.345000\n");
    EXPECT_EQ(text("float"), "1700000000,0,10000.099609\n");
    EXPECT_EQ(text("int"), "1700000000,0,-5.000000\n");
    EXPECT_EQ(text("unsigned"), "1700000000,0,4294967295.000000\n");
}

TEST_F(ArchiveHolderTest, DoublesAreWrittenBeforeIntsAndIntsBeforeUnsigneds) {
    holder.add_value("Q", 5U);
    holder.add_value("Q", 3);
    holder.add_value("Q", 1.0F);
    holder.add_value("Q", 4);
    holder.add_value("Q", 2.0);
    flush();
    EXPECT_EQ(text("Q"),
              "1700000000,192,1.000000\n1700000000,192,2.000000\n1700000000,192,3.000000\n"
              "1700000000,192,4.000000\n1700000000,192,5.000000\n");
}

TEST_F(ArchiveHolderTest, ValuesWithTheirOwnQualityAreFloatsFirstAndThenDoubles) {
    holder.add_value_q("Q", 3.0, 0);
    holder.add_value_q("Q", 1.0F, 192);
    holder.add_value_q("Q", 2.0F, 7);
    flush_q();
    EXPECT_EQ(text("Q"), "1700000000,192,1.000000\n1700000000,7,2.000000\n1700000000,0,3.000000\n");
    EXPECT_TRUE(holder.nothing_waits());
}

TEST_F(ArchiveHolderTest, EachFlushWritesItsOwnListsOnly) {
    holder.add_value("A", 1.0);
    holder.add_value_q("B", 2.0, 0);
    flush();
    EXPECT_TRUE(text("A"));
    EXPECT_FALSE(text("B"));
    holder.add_value("A", 3.0);
    flush_q();
    EXPECT_EQ(text("A"), "1700000000,192,1.000000\n");
    EXPECT_EQ(text("B"), "1700000000,0,2.000000\n");
    flush();
    EXPECT_EQ(text("A"), "1700000000,192,1.000000\n1700000000,192,3.000000\n");
}

TEST_F(ArchiveHolderTest, TwoEqualNamesInAPassAreTwoLines) {
    holder.add_value("Q", 1.5);
    holder.add_value("Q", 1.5);
    flush();
    EXPECT_EQ(text("Q"), "1700000000,192,1.500000\n1700000000,192,1.500000\n");
}

TEST_F(ArchiveHolderTest, EveryValueIsMadeDurableForItself) {
    for (int i = 0; i < 3; ++i) holder.add_value("Q", i);
    holder.add_value("T0", 1.5);
    flush();
    EXPECT_EQ(scene.gateway.durable_writes(), 4);
}

TEST_F(ArchiveHolderTest, FlushOfNothingWritesNothing) {
    flush();
    flush_q();
    EXPECT_EQ(scene.list("/mnt/storage/u/1/tc_archives"), Names{});
}

TEST_F(ArchiveHolderTest, ClearedValuesAreNotWrittenButThoseWithTheirOwnQualityStay) {
    holder.add_value("A", 1.0);
    holder.add_value("A", 1);
    holder.add_value("A", 1U);
    holder.add_value_q("B", 1.0F, 192);
    holder.clear_values();
    flush();
    flush_q();
    EXPECT_FALSE(text("A"));
    EXPECT_EQ(text("B"), "1700000000,192,1.000000\n");
}

TEST_F(ArchiveHolderTest, ArchiveTypeDoesNotShowInALine) {
    holder.add_value("Q", 1.5);
    holder.flush_values(record_date(), 4, 192, 1, 0);
    EXPECT_EQ(text("Q"), "1700000000,192,1.500000\n");
}

TEST_F(ArchiveHolderTest, ValuesGoToTheirSubsystemStagedForAFlagOfExactlyOne) {
    holder.add_value("Q", 1.0);
    holder.flush_values(record_date(), 0, 192, 6, 1);
    holder.add_value("Q", 2.0);
    holder.flush_values(record_date(), 0, 192, 6, 2);
    EXPECT_EQ(scene.archive("u", 6, "Q", "tmp_archives"), "1700000000,192,1.000000\n");
    EXPECT_EQ(scene.archive("u", 6, "Q", "tc_archives"), "1700000000,192,2.000000\n");
}

TEST_F(ArchiveHolderTest, ValueOfAMissingFolderIsDroppedAndForgotten) {
    const std::string said = stderr_of([&] {
        EXPECT_EQ(stdout_of([&] {
                      holder.add_value("Q", 1.5);
                      holder.add_value("none/Q", 1.5);
                      holder.add_value_q("Q", 1.5, 192);
                      holder.flush_values(record_date(), 0, 192, 7, 0);
                      holder.flush_values_q(record_date(), 0, 7, 0);
                  }),
                  "");
    });
    EXPECT_EQ(said, "");
    EXPECT_TRUE(holder.nothing_waits());
    EXPECT_FALSE(scene.exists("/mnt/storage/u/7"));
}

TEST_F(ArchiveHolderTest, OneValueThatCannotBeWrittenDoesNotKeepTheOthers) {
    holder.add_value("A", 1.0);
    holder.add_value("none/B", 2.0);
    holder.add_value("C", 3.0);
    flush();
    EXPECT_EQ(scene.list("/mnt/storage/u/1/tc_archives"), (Names{"A", "C"}));
}

TEST_F(ArchiveHolderTest, LineThatIsTooLongForItsBufferIsEndedBeforeTheNext) {
    holder.add_value("Q", 1e300);
    holder.add_value("Q", 1.5);
    flush();
    const std::string whole = text("Q").value();
    EXPECT_EQ(whole.find('\n'), 199U);
    EXPECT_EQ(whole.substr(200), "1700000000,192,1.500000\n");
}

TEST_F(ArchiveHolderTest, DateThatDoesNotFitThirtyTwoBitsIsMinusOneInALine) {
    std::tm far = record_date();
    far.tm_year = 140;
    holder.add_value("Q", 1.5);
    holder.flush_values(far, 0, 192, 1, 0);
    EXPECT_EQ(text("Q"), "-1,192,1.500000\n");
}

TEST_F(ArchiveHolderTest, UuidOf300CharactersWritesWhereItsCutPathLeads) {
    Holder hostile(std::string(300, 'u'));
    hostile.add_value("Q", 1.5);
    hostile.flush_values(record_date(), 0, 192, 1, 0);
    EXPECT_EQ(scene.file("/mnt/storage/" + std::string(106, 'u')), "1700000000,192,1.500000\n");
}

TEST(ArchiveHolderZoneTest, SameRecordHasAnotherTimeUnderAnotherTimeZone) {
    for (const auto& [zone, time] : {std::pair{"UTC", "1700000000"}, {"CET-1", "1699996400"}, {"EST5", "1700018000"}}) {
        Scene scene("2024-03-02 10:00", zone);
        scene.make_tree("u");
        Holder holder("u");
        holder.add_value("Q", 1.5);
        holder.flush_values(record_date(), 0, 192, 1, 0);
        EXPECT_EQ(scene.archive("u", 1, "Q"), std::string(time) + ",192,1.500000\n");
    }
}

// ---- the direct path

TEST_F(ArchiveHolderTest, DirectLinesAreAppendedToTheOpenFile) {
    scene.write("/mnt/storage/u/1/tc_tmp_archives/Q", "1,0,0.000000\n");
    EXPECT_TRUE(holder.open_direct("Q", 1, "tc_tmp_archives"));
    EXPECT_EQ(holder.write_direct(1700000000, 192, 1.5), 24);
    holder.write_direct(-1, 0, -2);
    holder.close_direct();
    EXPECT_EQ(text("Q", "tc_tmp_archives"), "1,0,0.000000\n1700000000,192,1.500000\n-1,0,-2.000000\n");
}

TEST_F(ArchiveHolderTest, DirectLineWithoutAnOpenFileIsOnlyMeasured) {
    EXPECT_EQ(holder.write_direct(1700000000, 192, 1.5), 24);
    holder.open_direct("Q", 1, "tc_archives");
    holder.close_direct();
    holder.close_direct();
    EXPECT_EQ(holder.write_direct(1700000000, 192, 1.5), 24);
    EXPECT_EQ(text("Q"), "");
}

TEST_F(ArchiveHolderTest, OpeningAnotherDirectFileClosesTheOneBefore) {
    holder.open_direct("A", 1, "tc_archives");
    holder.write_direct(1, 192, 1);
    EXPECT_TRUE(holder.open_direct("B", 2, "tmp_archives"));
    EXPECT_EQ(text("A"), "1,192,1.000000\n");
    holder.write_direct(2, 192, 2);
    holder.close_direct();
    EXPECT_EQ(scene.archive("u", 2, "B", "tmp_archives"), "2,192,2.000000\n");
}

TEST_F(ArchiveHolderTest, DirectFileThatCannotBeOpenedIsToldAndTheOneBeforeIsClosed) {
    holder.open_direct("A", 1, "tc_archives");
    EXPECT_FALSE(holder.open_direct("B", 7, "tc_archives"));
    holder.write_direct(1, 192, 1);
    holder.close_direct();
    EXPECT_EQ(text("A"), "");
}

TEST_F(ArchiveHolderTest, DirectFileIsNotLocked) {
    holder.open_direct("A", 1, "tc_archives");
    const int fd = ::open(scene.real_path("/mnt/storage/u/1/tc_archives/A").c_str(), O_RDONLY);
    EXPECT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
    ::close(fd);
}

TEST_F(ArchiveHolderTest, DirectLineBehindATornOneStandsOnALineOfItsOwn) {
    scene.write("/mnt/storage/u/1/tc_archives/A", "1,192,1.000000\n2,19");
    holder.open_direct("A", 1, "tc_archives");
    holder.write_direct(3, 192, 3);
    holder.close_direct();
    EXPECT_EQ(text("A"), "1,192,1.000000\n2,19\n3,192,3.000000\n");
}

TEST_F(ArchiveHolderTest, DirectLineHasRoomFor255Characters) {
    holder.open_direct("A", 1, "tc_archives");
    holder.write_direct(1700000000, 192, 1e300);
    holder.close_direct();
    EXPECT_EQ(text("A")->size(), 255U);
}

// ---- the rest

TEST_F(ArchiveHolderTest, TimerIsDueOnceMoreThan2580SecondsHavePassed) {
    scene.gateway.sleep(2580);
    EXPECT_FALSE(holder.is_timer_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(holder.is_timer_due());
    EXPECT_FALSE(holder.is_timer_due());
    scene.gateway.sleep(2580);
    EXPECT_FALSE(holder.is_timer_due());
    scene.gateway.sleep(1);
    EXPECT_TRUE(holder.is_timer_due());
}

TEST(ShiftedName, IsOneOfTheSixteenTotals) {
    for (const char* name :
         {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16", "A29", "A32", "A34", "A36", "A38", "A40", "A42", "A44"}) {
        EXPECT_TRUE(ArchiveHolder::is_shifted_name(name)) << name;
    }
}

TEST(ShiftedName, IsComparedExactly) {
    for (const char* name : {"", "A", "a1", "A1 ", " A1", "A01", "A2", "A3", "A5", "A11", "A18", "A30", "A31", "A44a",
                             "A46", "Q", "A440"}) {
        EXPECT_FALSE(ArchiveHolder::is_shifted_name(name)) << name;
    }
}

}  // namespace
