// What the meter's log tells of a run, line by line: of a description, of values, of the archive, of the whole cycle.

#include "support/vist_story.h"

#include <algorithm>
#include <string>
#include <vector>

#include "support/configured.h"
#include "support/vist_present.h"
#include "support/vist_scene.h"
#include "vist/vist_ring.h"

namespace {

using namespace vist_present;

// ---- description and values

class VistStories : public VistDescribedStand {
  protected:
    /// What the decoding of an integrator packet tells. A clock is that of 10:04 and so many seconds.
    static VistStory of_integrators(int buffer, unsigned mask, const std::string& seconds) {
        VistStory told = {"flush_values PVISTpktheader hex dump",
                          "flush_values PVISTpktheader FULL hex dump",
                          "Flushing values for buffer " + std::to_string(buffer),
                          "VIST: current time: 10:04:" + seconds,
                          "VIST: current date: 02:03:24",
                          " also local time is *",
                          "fSwap = 1",
                          "ppkt->enumer = 0",
                          "ppkt->enumer & 0x80 = 0",
                          "!(ppkt->enumer & 0x80) = 1",
                          "Mask is *",
                          "Mask after conversion is " + std::to_string(mask)};
        for (unsigned slot = 0; slot < 7; ++slot) {
            const std::string n = std::to_string(slot);
            const std::string bit = std::to_string(mask >> slot & 1);
            const std::string value = bit == "1" ? std::to_string(slot + 1.0) : "-123.333000";
            told.push_back("Cycle " + n + ", mask " + bit + ", full " + std::to_string(mask >> slot));
            told.push_back("Process integrator " + n + " with mask " + bit + ", after conversion is " + value);
        }
        return told;
    }
};

TEST_F(VistStories, ADescriptionIsToldStepByStep) {
    record[115] = 1;     // pt4
    record[116] = 0xFE;  // dT, big-endian: -300
    record[117] = 0xD4;
    record[118] = 2;  // qpoint
    record[122] = 1;  // iT2
    put_record();
    config[13] = 50;
    config[15] = 40;
    config[16] = 0xFF;
    config[17] = 0xFE;
    meter.put_packet("/SYS CFG 1", 33, config);
    clear_log();
    ASSERT_TRUE(describe());
    const VistStory awaited = joined({
        {
            "Try to get description of TC VIST *",
            "Try to get software version...",
            "VIST SW version: 102",
            "Try to get virtual device count for TC VIST *",
            "VIST virtual devices count: 1",
            "Try to get device serial",
            "Try to get virtual device #0 name for TC VIST *",
        },
        of_integrators(0, 0, "58"),
        {
            "VDS TYPE before bytes swap: *",
            "VDS TYPE after bytes swap: *",
            "HC OPC name of virtual device: T",
            "FORMULA: *",
            "Reserver[16] *",
            "activeErrors = *",
            "Formula: Q = G1 * ( H1 - H2 )",
            "pvds->dT = -300, pvds->qpoint = 2, pvds->pt4 = 1",
            "Read Config",
            "Write: DN1 = 50",
            "Write: DN2 = 40",
            "Write: DN3 = -2",
        },
    });
    EXPECT_TRUE(is_story(vist_story(log()), awaited));
    const auto dumps = vist_dumps(log());
    EXPECT_EQ(std::count(dumps.begin(), dumps.end(), 151U), 1) << "the record of the device";
    EXPECT_EQ(std::count(dumps.begin(), dumps.end(), 26U), 1) << "its configuration";
}

TEST_F(VistStories, ValuesAreToldStepByStepAndWithTheBytesOfTheirPackets) {
    meter.put_packet("/MON TG", 12, with_clock(integrators(0x1FF)));
    meter.put_packet("/MON C", 11, moments(0x7FFF));
    driver->FlushCurrentValues();
    const VistStory awaited = joined(
        {of_integrators(1, 0x1FF, "59"),
         {"Warning: mask of binary request is not null after processing!", "flush_values PVISTpktheader hex dump",
          "flush_values PVISTpktheader FULL hex dump", "Flushing values for buffer 2", "fSwap = 1", "ppkt->enumer = 0",
          "ppkt->enumer & 0x80 = 0", "!(ppkt->enumer & 0x80) = 1", "Mask is 00 00 7f ff",
          "Mask after conversion is 32767", "Warning: mask of binary request is not null after processing!"}});
    const VistStory told = vist_story(log());
    ASSERT_GT(told.size(), awaited.size());
    EXPECT_TRUE(is_story({told.end() - static_cast<std::ptrdiff_t>(awaited.size()), told.end()}, awaited));
    // A head of three bytes, size, sum and type, a clock, `enumer`, the mask, seven values of five bytes and one of
    // nine; the same head, then seven values of five bytes, four of three, three of two, and the status.
    const auto dumps = vist_dumps(log());
    ASSERT_GT(dumps.size(), 4U);
    EXPECT_EQ((std::vector<std::size_t>{dumps.end() - 4, dumps.end()}),
              (std::vector<std::size_t>{7, 6 + 6 + 5 + 7 * 5 + 9, 7, 6 + 5 + 7 * 5 + 4 * 3 + 3 * 2 + 4}));
}

TEST_F(VistStories, TheOrderOfTheBytesIsToldInFourWays) {
    put_version(101);
    put_byte_order(true, false);
    ASSERT_TRUE(describe());
    const VistStory told = vist_story(log());
    const auto at = std::find(told.begin(), told.end(), "Flushing values for buffer 0");
    ASSERT_GT(told.end() - at, 7);
    EXPECT_TRUE(is_story({at + 1, at + 7},
                         {"fSwap = 0", "ppkt->enumer = 128", "ppkt->enumer & 0x80 = 128", "!(ppkt->enumer & 0x80) = 0",
                          "Mask is 00 00 00 00", "Mask after conversion is 0"}));
}

// ---- the archive

class VistArchiveStories : public VistArchives {
  protected:
    VistStory of_pass() {
        scene.write("/tmp/uni_logs.m1.txt", "");
        pass();
        return vist_story(log());
    }
    static std::string at(int hour) { return std::to_string(Midnight + hour * Hour); }
    static VistStory of_beginning(const std::string& data, const std::string& header) {
        return {"get_archives start",
                "subsystem num = 0",
                "Init last_request_archive_data",
                "last_request_archive_data = " + data,
                "last_request_archive_header = " + header,
                "GetArchives for virt. device num 0",
                "Do request : Archive Header",
                "Start flush archive header",
                "CRC ok"};
    }
    static VistStory of_header(int hour) {
        return {"Archive header time: " + std::to_string(hour) + ":00:00", "Archive header date: 02:03:24",
                "Ok, flush_archives. New max timestamp = " + at(hour)};
    }
    /// Whose oldest record is that of nine o'clock.
    static VistStory of_oldest(const std::string& data) {
        return {"Start get timestamp oldest's record",
                "pRec->crc == calc_crc",
                "Success: oldest's record timestamp = " + at(9),
                "Oldest TC's archive record timestamp: " + at(9),
                "Newest controller's archive record timestamp: *",
                "Last request archive date = " + data,
                "TC_oldestTimestamp = " + at(9)};
    }
    static VistStory of_record(int hour) {
        return {"Do request next record", "Success: next record request", "Start flush archive data", "CRC ok",
                "Archive record timestamp: " + at(hour)};
    }
    static VistStory of_new_record(int hour) { return joined({of_record(hour), {"flush archive data end: success"}}); }
    static VistStory of_stored_record(int hour) {
        return joined(
            {of_record(hour), {"Current data timestamp is exists, return true", "flush archive data end: success"}});
    }
    static VistStory of_end(int header, int data, const std::string& difference) {
        return {"Determine get_archives() end..", "header_date = " + at(header), "delta_date + 3600 = " + at(data + 1),
                "difftime => " + difference};
    }
    const VistStory refused = {"Do request next record", "Failure: next record request", "Archive retriving FAILED!14"};
};

TEST_F(VistArchiveStories, AFirstPassIsToldStepByStep) {
    start(9, 10);
    const VistStory awaited = joined({
        of_beginning("0", "0"),
        of_header(10),
        of_oldest("0"),
        {"perform: last_request_archive_data = 0", "Index for request = -474825", "Selecting record(index) : 2",
         "Success: Selecting record."},
        of_new_record(9),
        of_new_record(10),
        refused,
        of_end(10, 10, "3600.000000"),
    });
    EXPECT_TRUE(is_story(of_pass(), awaited));
}

TEST_F(VistArchiveStories, ALaterPassTellsOfStoredRecordsOfABadOneAndOfAHole) {
    start(9, 10);
    ASSERT_TRUE(pass());
    machine.sleep(3 * Hour);
    store(11);
    store(13);
    meter.spoil_record(Midnight + 11 * Hour, 1);
    const VistStory bad = {
        "Do request next record",           "Success: next record request",
        "Start flush archive data",         "Incoming CRC != calc CRC  ==> error = error_crc_calc, return true",
        "flush archive data end: success",  "ERROR_CRC_CALC",
        "Error count = 1 of MaxErrors = 14"};
    const VistStory awaited = joined({
        of_beginning(at(10), at(10)),
        of_header(13),
        of_oldest(at(10)),
        {"Index for request = 1", "Selecting record(index) : 5", "Success: Selecting record."},
        of_stored_record(9),
        of_stored_record(10),
        bad,
        of_new_record(11),
        of_record(13),
        {"Record's timestamp less that coming record's timestamp ", "return false", "flush archive data end: failure"},
        of_end(13, 11, "-3600.000000"),
    });
    EXPECT_TRUE(is_story(of_pass(), awaited));
}

TEST_F(VistArchiveStories, APassWithoutANewHeaderTellsSoAndNoMore) {
    start(9, 10);
    ASSERT_TRUE(pass());
    const VistStory awaited = joined({
        of_beginning(at(10), at(10)),
        {"Archive header time: 10:00:00", "Archive header date: 02:03:24",
         "Current header timestamp is exists, return false", "Flush archive header: failure"},
    });
    EXPECT_TRUE(is_story(of_pass(), awaited));
}

TEST_F(VistArchiveStories, TheQuestionWhetherAPassIsDueIsToldWithItsTimes) {
    start(9, 10);
    scene.write("/tmp/uni_logs.m1.txt", "");
    const std::time_t born = Ten + 300 - 3000;  // the driver was made at 10:05
    driver->need_update_archives(0);
    const std::string no = "No, curtm = " + std::to_string(machine.now()) + ", return false";
    machine.sleep(601);
    driver->need_update_archives(0);
    const std::string yes = "Yes, curtm = " + std::to_string(machine.now()) +
                            ", last_hour_update = " + std::to_string(born) + ", return true";
    EXPECT_TRUE(is_story(log(), {"Need update archives ?", no, "Need update archives ?", yes}));
}

// ---- the whole cycle

TEST_F(VistArchiveStories, ACycleTellsWhoseItIsAndWhetherTheArchiveIsUpToDate) {
    start(9, 10);
    set_port_name(*driver, Port);
    scene.write("/tmp/uni_logs.m1.txt", "");
    driver->run_main();
    VistStory told = vist_story(log());
    ASSERT_GE(told.size(), 6U);
    EXPECT_TRUE(
        is_story({told.begin(), told.begin() + 4},
                 {"vist_run_main, uuid = m1",
                  "dev: /dev/ttyS1, tty_fd = " + std::to_string(driver->get_tty_fd()) + ", tc_baud = 3, tc_parity = 2",
                  "FlushCurrentValues", "Try to get description of TC VIST *"}));
    const std::string clock = item("MDateTime");
    EXPECT_TRUE(is_story({told.end() - 3, told.end()}, {"Need update archives ?", "No, curtm = *",
                                                        "Actual Archives = FALSE; Difftime( MDateTime(" + clock +
                                                            "), last request Hour(0)) > 4 hour"}));

    machine.sleep(601);
    driver->run_main();
    driver->is_all_archives_ok();
    told = vist_story(log());
    const auto due = std::find(told.begin(), told.end(), "Runnig archives for subsystem 0, stopping EXT DS");
    ASSERT_LT(due, told.end() - 3);
    EXPECT_TRUE(is_story({due, due + 2}, {"Runnig archives for subsystem 0, stopping EXT DS", "get_archives start"}));
    EXPECT_TRUE(is_story({told.end() - 3, told.end()},
                         {"difftime => 3600.000000", "Actual Archives = TRUE;", "Start is_all_archives_ok"}));
}

}  // namespace
