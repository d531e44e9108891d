// What the daemon would write or read is a FIFO, a device, or a link to one: nothing waits, nothing is written through
// it, and it counts as a file that cannot be opened. Below /tmp no planted link is followed.

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_holder.h"
#include "config/publisher.h"
#include "core/files.h"
#include "core/local_time.h"
#include "core/uni_log.h"
#include "driver/flag_files.h"
#include "support/child.h"
#include "support/scene.h"

namespace fs = std::filesystem;

namespace {

constexpr char Line[] = "1709373600,192,1.500000\n";
constexpr char Victim[] = "/mnt/storage/victim";

class Holder : public ArchiveHolder {
  public:
    Holder() { uuid = "u"; }
};

/// What stands in the way under a name.
enum class Planted { Fifo, LinkToAFifo, LinkToADevice, LinkToAFile };

class PlantedNames : public ::testing::TestWithParam<Planted> {
  protected:
    void SetUp() override {
        scene.make_tree("u");
        scene.write(Victim, "whole");
    }

    void plant(const std::string& path) const {
        const std::string real = scene.real_path(path);
        fs::create_directories(fs::path(real).parent_path());
        const std::string fifo = scene.real_path("/mnt/fifo");
        if (GetParam() == Planted::LinkToAFifo) ::mkfifo(fifo.c_str(), 0666);
        switch (GetParam()) {
            case Planted::Fifo:
                EXPECT_EQ(::mkfifo(real.c_str(), 0666), 0);
                break;
            case Planted::LinkToAFifo:
                fs::create_symlink(fifo, real);
                break;
            case Planted::LinkToADevice:
                fs::create_symlink("/dev/zero", real);
                break;
            case Planted::LinkToAFile:
                fs::create_symlink(scene.real_path(Victim), real);
                break;
        }
    }
    void expect_untouched(const std::string& path) const {
        EXPECT_FALSE(fs::is_regular_file(fs::symlink_status(scene.real_path(path)))) << path;
        EXPECT_EQ(scene.file(Victim), "whole") << path;
    }

    Scene scene;
};

TEST_P(PlantedNames, BelowTmpAreLeftAlone) {
    const std::vector<std::string> paths = {
        "/tmp/uni_logs.u.debug.txt", "/tmp/u/1/tc_items/T1", "/tmp/driver.u.state",
        "/tmp/extds_pause",          "/tmp/DRV_LCK_u",       "/tmp/arch.integrity.fail.1"};
    for (const std::string& path : paths) plant(path);

    log_line(open_meter_log("u", "debug.txt").get(), "text");
    put_item(7, "u", "T1", nullptr, 1);
    driver_state("u", "text");
    extds_pause(0, "7200");
    FlagFiles::instance().set("u", FlagFiles::DriverLock);
    scene.write("/mnt/storage/u/1/tc_archives/A1", Line);
    scene.write("/mnt/storage/u/1/tc_archives/A2", "1709370000,192,1.500000\n");
    const std::string names[] = {"A1", "A2"};
    EXPECT_EQ(Holder().check_integrity(names, 2, 1, 0), 0);

    for (const std::string& path : paths) expect_untouched(path);
}

TEST_P(PlantedNames, OfFlagsThatAreTakenAwayAreTakenAwayThemselves) {
    plant("/tmp/extds_pause");
    plant("/tmp/DRV_LCK_u");
    extds_pause(1, "1800");
    FlagFiles::instance().clear("u", FlagFiles::DriverLock);
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
    EXPECT_FALSE(scene.exists("/tmp/DRV_LCK_u"));
    EXPECT_EQ(scene.file(Victim), "whole");
}

/// An archive may be a link to a file.
class PlantedArchives : public PlantedNames {};

TEST_P(PlantedArchives, DropTheirValuesAndHoldUpNoOther) {
    plant("/mnt/storage/u/1/tc_archives/A1");
    plant("/mnt/storage/u/1/tc_archives/A3");
    Holder holder;
    holder.add_value("A1", 1.5);
    holder.add_value("A2", 1.5);
    holder.flush_values(local_time(1709373600), 0, QualityGood, 1, 0);
    EXPECT_FALSE(holder.open_direct("A3", 1, "tc_archives"));
    holder.write_direct(1709373600, QualityGood, 1.5);
    holder.close_direct();
    EXPECT_EQ(scene.archive("u", 1, "A2"), Line);
    EXPECT_EQ(holder.last_record_time("A1", 1, "tc_archives"), 0);
    const std::string names[] = {"A1", "A2"};
    EXPECT_EQ(holder.check_integrity(names, 2, 1, 0), 1709373600);
    ArchiveFile file("u", 1, "A1", 0);
    EXPECT_EQ(stdout_of([&] { file.clear(); }), "Error while open on clear (/mnt/storage/u/1/tc_archives/A1)\n");
    expect_untouched("/mnt/storage/u/1/tc_archives/A1");
    expect_untouched("/mnt/storage/u/1/tc_archives/A3");
}

TEST_P(PlantedArchives, ThatAreStagedOrCopiedHoldUpNoOther) {
    plant("/mnt/storage/u/1/tmp_archives/A1");
    plant("/mnt/storage/u/1/tc_tmp_archives/A2");
    scene.write("/mnt/storage/u/1/tmp_archives/A2", Line);
    scene.write("/mnt/storage/u/1/tmp_archives/A3", Line);
    stdout_of([] { Holder().copy_staged(1, "tc_tmp_archives"); });
    EXPECT_FALSE(scene.exists("/mnt/storage/u/1/tc_tmp_archives/A1"));
    expect_untouched("/mnt/storage/u/1/tc_tmp_archives/A2");
    EXPECT_EQ(scene.archive("u", 1, "A3", "tc_tmp_archives"), Line);
}

INSTANTIATE_TEST_SUITE_P(EachKind, PlantedNames,
                         ::testing::Values(Planted::Fifo, Planted::LinkToAFifo, Planted::LinkToADevice,
                                           Planted::LinkToAFile));
INSTANTIATE_TEST_SUITE_P(EachKind, PlantedArchives,
                         ::testing::Values(Planted::Fifo, Planted::LinkToAFifo, Planted::LinkToADevice));

}  // namespace
