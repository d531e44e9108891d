#include "core/uni_log.h"

#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/machines.h"
#include "support/scene.h"

namespace {

constexpr char Path[] = "/tmp/uni_logs.u.txt";
constexpr char Prefix[] = "02/03/24 10:00:00.000 : ";

class UniLogTest : public ::testing::Test {
  protected:
    static UniLog file_log() { return {UniLog::ToFile, Path, ""}; }

    /// What one value leaves in the file of an otherwise empty log.
    template <typename Value>
    std::optional<std::string> file_text(const Value& value) {
        UniLog log = file_log();
        log << value;
        return scene.file(Path);
    }

    template <typename Value>
    static std::string printed(const Value& value) {
        return stdout_of([&] {
            UniLog log(UniLog::ToStdout, "", "");
            log << value;
        });
    }

    Scene scene{"2024-03-02 10:00:00"};
};

TEST_F(UniLogTest, LineIsPrefixTextAndLineEnd) {
    UniLog log = file_log();
    log << LOG_BEGIN << "Run = " << 2 << LOG_END;
    EXPECT_EQ(scene.file(Path), std::string(Prefix) + "Run = 2\n");
}

TEST_F(UniLogTest, PrefixHasTheDayFirstAndTheYearWithoutCentury) {
    scene.gateway.step_clock(86400.0 * 304);  // to 31 December
    EXPECT_EQ(file_log().time_prefix().substr(0, 8), "31/12/24");
}

TEST_F(UniLogTest, PrefixTellsMillisecondsInThreeDigits) {
    scene.gateway.step_clock(7.0425);
    EXPECT_EQ(file_log().time_prefix(), "02/03/24 10:00:07.042 : ");
}

TEST(UniLogZoneTest, PrefixIsTheLocalTimeOfTheGateway) {
    const Scene scene("2024-07-01 00:30:00", "CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(UniLog("", "").time_prefix(), "01/07/24 00:30:00.000 : ");
}

TEST(UniLogZoneTest, PrefixOfAYearBelowTenHasALeadingZero) {
    const Scene scene("2009-01-02 03:04:05");
    EXPECT_EQ(UniLog("", "").time_prefix(), "02/01/09 03:04:05.000 : ");
}

TEST_F(UniLogTest, ControlValuesAreZeroAndOneYetTheNumberZeroIsText) {
    EXPECT_EQ(static_cast<int>(LOG_BEGIN), 0);
    EXPECT_EQ(static_cast<int>(LOG_END), 1);
    UniLog log = file_log();
    log << 0 << 1;
    EXPECT_EQ(scene.file(Path), "01");
}

TEST_F(UniLogTest, UnknownControlValueDoesNothing) {
    EXPECT_EQ(file_text(static_cast<LogControl>(7)), "");
}

TEST_F(UniLogTest, EveryKindOfValueHasItsTextInTheFile) {
    EXPECT_EQ(file_text("text"), "text");
    EXPECT_EQ(file_text(std::string("string")), "string");
    EXPECT_EQ(file_text(-2147483647 - 1), "-2147483648");
    EXPECT_EQ(file_text(std::time_t{1700000000}), "1700000000");
    EXPECT_EQ(file_text(4294967295U), "4294967295");
    EXPECT_EQ(file_text(4000000000UL), "4000000000");
    EXPECT_EQ(file_text(18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(file_text(12.5), "12.500000");
    EXPECT_EQ(file_text(-0.25F), "-0.250000");
}

TEST_F(UniLogTest, VariableIsWrittenLikeAValue) {
    int number = 5;
    unsigned long wide = 6;
    UniLog log = file_log();
    log << number << wide;
    EXPECT_EQ(scene.file(Path), "56");
}

TEST_F(UniLogTest, StringEndsAtItsFirstZeroByte) {
    EXPECT_EQ(file_text(std::string("ab\0cd", 5)), "ab");
}

TEST_F(UniLogTest, PercentSignsOfATextAreNoFormat) {
    EXPECT_EQ(file_text("%s%n%d"), "%s%n%d");
    EXPECT_EQ(file_text(std::string("%s")), "%s");
}

TEST_F(UniLogTest, NumberIsCutAtThirtyCharacters) {
    // 1e30 has 31 digits before the point: 1000000000000000019884624838656.
    EXPECT_EQ(file_text(1e30), "100000000000000001988462483865");
}

TEST_F(UniLogTest, LongTextIsNotCut) {
    EXPECT_EQ(file_text(std::string(5000, 'x')), std::string(5000, 'x'));
}

TEST_F(UniLogTest, LogFileIsReadableByAllAndWritableByItsOwner) {
    file_log();
    using std::filesystem::perms;
    const perms mode = std::filesystem::status(scene.real_path(Path)).permissions();
    EXPECT_EQ(mode & ~perms(0644), perms::none);
    EXPECT_EQ(mode & perms(0600), perms(0600));
}

TEST_F(UniLogTest, OutputIsInTheFileAtOnce) {
    UniLog log = file_log();
    log << "a";
    EXPECT_EQ(scene.file(Path), "a");
    log << "b";
    EXPECT_EQ(scene.file(Path), "ab");
}

TEST_F(UniLogTest, RestartingTheProcessEmptiesTheLogFile) {
    file_log() << "of an earlier life";
    file_log();
    EXPECT_EQ(scene.file(Path), "");
}

// ---- mask

TEST_F(UniLogTest, MutedLogWritesNothingAndIsNotEnabled) {
    const std::string out = stdout_of([] {
        UniLog log(UniLog::ToFile | UniLog::ToStdout | UniLog::Muted, Path, "");
        EXPECT_FALSE(log.is_enabled());
        log << LOG_BEGIN << "text" << std::string("string") << 1 << 2.5 << LOG_END;
        log.dump_packet(std::vector<std::uint8_t>{1, 2});
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(scene.file(Path), "");
}

TEST_F(UniLogTest, LogWithMaskFourAloneWritesNothingAndIsNotEnabled) {
    UniLog log(4, Path, "");
    log << LOG_BEGIN << "text" << LOG_END;
    EXPECT_FALSE(log.is_enabled());
    EXPECT_EQ(scene.file(Path), "");
}

TEST_F(UniLogTest, LogWithMaskZeroWritesNothingButIsEnabled) {
    const std::string out = stdout_of([] {
        UniLog with_mask(0, Path, "name");
        UniLog without(Path, "name");
        EXPECT_TRUE(with_mask.is_enabled());
        EXPECT_TRUE(without.is_enabled());
        with_mask << LOG_BEGIN << "text" << 1 << LOG_END;
        without << LOG_BEGIN << "text" << 1 << LOG_END;
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(scene.file(Path), "");
}

TEST_F(UniLogTest, StandardOutputGetsATextTwice) {
    EXPECT_EQ(printed("text "), "text text ");
}

TEST_F(UniLogTest, StandardOutputGetsEverythingElseOnceAsAStreamPrintsIt) {
    EXPECT_EQ(printed(std::string("string")), "string");
    EXPECT_EQ(printed(7), "7");
    EXPECT_EQ(printed(12.5), "12.5");
}

TEST_F(UniLogTest, StandardOutputGetsTwoLineEnds) {
    EXPECT_EQ(printed(LOG_END), "\n\n");
}

TEST_F(UniLogTest, FileAndStandardOutputCanBeServedTogether) {
    const std::string out = stdout_of([] {
        UniLog log(UniLog::ToFile | UniLog::ToStdout, Path, "");
        log << "text" << LOG_END;
    });
    EXPECT_EQ(out, "texttext\n\n");
    EXPECT_EQ(scene.file(Path), "text\n");
}

TEST_F(UniLogTest, LogToAFileLeavesStandardOutputAlone) {
    EXPECT_EQ(stdout_of([] { file_log() << LOG_BEGIN << "text" << LOG_END; }), "");
}

// ---- a log without a file

TEST_F(UniLogTest, LogWithoutAPathWritesNothingAndDoesNotCrash) {
    UniLog log(UniLog::ToFile, "", "");
    log << LOG_BEGIN << "text" << 1 << LOG_END;
    log.dump_packet(std::vector<std::uint8_t>(17));
    EXPECT_TRUE(log.is_enabled());
    EXPECT_EQ(scene.list("/tmp"), std::vector<std::string>{});
}

TEST_F(UniLogTest, LogWhoseFileCannotBeOpenedIsSilent) {
    scene.touch("/tmp/file");
    for (const std::string& path : {std::string("/tmp/file/log.txt"), std::string("/tmp/missing/log.txt"),
                                    "/tmp/uni_logs." + std::string(300, 'u') + ".txt"}) {
        const std::string said = stderr_of([&] {
            UniLog log(UniLog::ToFile, path, "");
            log << LOG_BEGIN << "text" << LOG_END;
        });
        EXPECT_EQ(said, "") << path;
    }
    EXPECT_EQ(scene.list("/tmp"), std::vector<std::string>{"file"});
}

TEST_F(UniLogTest, FullStorageIsNotReported) {
    const FullStorage machine(100);
    const std::string said = stderr_of([] {
        UniLog log = file_log();
        log << LOG_BEGIN << std::string(300'000, 'x') << LOG_END;
        log.dump_packet(std::vector<std::uint8_t>(40));
    });
    EXPECT_EQ(said, "");
}

// ---- a file that writes over itself

TEST_F(UniLogTest, LineEndAt204800BytesDoesNotWrap) {
    UniLog log = file_log();
    log << std::string(204'799, 'x') << LOG_END << "next";
    EXPECT_EQ(scene.file(Path), std::string(204'799, 'x') + "\nnext");
}

TEST_F(UniLogTest, LineEndAt204801BytesWrapsToTheBeginning) {
    UniLog log = file_log();
    log << std::string(204'800, 'x') << LOG_END;
    EXPECT_EQ(scene.file(Path), "---------------\n" + std::string(204'800 - 16, 'x') + "\n");
}

TEST_F(UniLogTest, TextAfterAWrapStandsBehindTheMarkerAndTheOlderTailStays) {
    UniLog log = file_log();
    log << std::string(210'000, 'x') << LOG_END << "next" << LOG_END;
    EXPECT_EQ(scene.file(Path), "---------------\nnext\n" + std::string(210'000 - 21, 'x') + "\n");
}

TEST_F(UniLogTest, OnlyALineEndWraps) {
    UniLog log = file_log();
    log << std::string(204'800, 'x') << "y" << 1 << LOG_BEGIN;
    EXPECT_EQ(scene.file(Path), std::string(204'800, 'x') + "y1" + Prefix);
}

TEST_F(UniLogTest, FileOfAYearOfLinesStaysSmall) {
    UniLog log = file_log();
    for (int i = 0; i < 10'000; ++i) log << std::string(99, 'x') << LOG_END;
    EXPECT_EQ(scene.file(Path)->size(), 204'900U);  // 2049 lines of 100 bytes pass the limit
}

// ---- packets

TEST_F(UniLogTest, PacketOfSeventeenBytesIsTwoRowsTheSecondWithOneByte) {
    std::vector<std::uint8_t> bytes(16, 0x0A);
    bytes.push_back(0xFE);
    file_log().dump_packet(bytes);
    std::string first_row;
    for (int i = 0; i < 16; ++i) first_row += " 0x0A";
    const std::string prefix = Prefix;
    EXPECT_EQ(scene.file(Path), prefix + "Dumping packet:\n" + prefix + first_row + "\n" + prefix + " 0xFE\n" + "\n" +
                                    prefix + "Dumping packet done.\n");
}

TEST_F(UniLogTest, PacketOfSixteenBytesIsOneRow) {
    file_log().dump_packet(std::vector<std::uint8_t>(16, 0x00));
    std::string row;
    for (int i = 0; i < 16; ++i) row += " 0x00";
    const std::string prefix = Prefix;
    EXPECT_EQ(scene.file(Path),
              prefix + "Dumping packet:\n" + prefix + row + "\n\n" + prefix + "Dumping packet done.\n");
}

TEST_F(UniLogTest, EmptyPacketIsHeadingEmptyLineAndEnd) {
    file_log().dump_packet(nullptr, 0);
    const std::string prefix = Prefix;
    EXPECT_EQ(scene.file(Path), prefix + "Dumping packet:\n\n" + prefix + "Dumping packet done.\n");
}

TEST_F(UniLogTest, PacketOfNegativeLengthIsAnEmptyOne) {
    file_log().dump_packet(nullptr, -1);
    const std::string prefix = Prefix;
    EXPECT_EQ(scene.file(Path), prefix + "Dumping packet:\n\n" + prefix + "Dumping packet done.\n");
}

TEST_F(UniLogTest, PacketOnStandardOutputHasItsHeadingsTwiceAndItsRowsOnce) {
    const std::string out = stdout_of([] {
        UniLog log(UniLog::ToStdout, "", "");
        log.dump_packet(std::vector<std::uint8_t>{0x0A, 0xFE});
    });
    const std::string prefix = Prefix;
    EXPECT_EQ(out, prefix + "Dumping packet:Dumping packet:\n\n" + prefix + " 0x0A 0xFE\n\n" + "\n\n" + prefix +
                       "Dumping packet done.Dumping packet done.\n\n");
}

// ---- the second channel

constexpr char DebugPath[] = "/mnt/storage/DebugLog.log";
constexpr std::uint8_t Two[] = {0x01, 0xAB};

TEST_F(UniLogTest, DebugLogWorksOnlyOnAFileThatIsThere) {
    UniLog log = file_log();
    log.open_debug_log();
    log.debug_write("text");
    log.debug_block("a", "b", Two, 2);
    EXPECT_FALSE(scene.exists(DebugPath));
}

TEST_F(UniLogTest, DebugLogIsEmptiedWhenItIsOpenedAndThenWrittenAtItsEnd) {
    scene.write(DebugPath, "of an earlier life");
    UniLog log = file_log();
    log.open_debug_log();
    EXPECT_EQ(scene.file(DebugPath), "");
    log.debug_write("one");
    scene.write(DebugPath, "outside");
    log.debug_write("two");
    EXPECT_EQ(scene.file(DebugPath), "outsidetwo");
}

TEST_F(UniLogTest, DebugBlockIsStartRowsAndEndWithoutTimes) {
    scene.touch(DebugPath);
    UniLog log = file_log();
    log.open_debug_log();
    log.debug_block("request", "of u", Two, 2);
    EXPECT_EQ(scene.file(DebugPath), "START: request\n 0x01 0xAB\nEND: of u\n\n");
    EXPECT_EQ(scene.file(Path), "");
}

TEST_F(UniLogTest, DebugBlockOfSeventeenBytesHasTwoRows) {
    scene.touch(DebugPath);
    UniLog log = file_log();
    log.open_debug_log();
    log.debug_block("", "", std::vector<std::uint8_t>(17, 0x11).data(), 17);
    std::string first_row;
    for (int i = 0; i < 16; ++i) first_row += " 0x11";
    EXPECT_EQ(scene.file(DebugPath), "START: \n" + first_row + "\n 0x11\nEND: \n\n");
}

TEST_F(UniLogTest, DebugChannelThatWasNeverOpenedWritesNowhere) {
    const std::string out = stdout_of([] {
        const std::string err = stderr_of([] {
            UniLog log = file_log();
            log.debug_write("text");
            log.debug_block("a", "b", Two, 2);
        });
        EXPECT_EQ(err, "");
    });
    EXPECT_EQ(out, "");
}

// ---- whole lines

TEST_F(UniLogTest, LineToNoLogOrToAMutedOneIsNothing) {
    UniLog muted(UniLog::ToFile | UniLog::Muted, Path, "");
    log_line(nullptr, "text");
    log_line(&muted, "text");
    EXPECT_EQ(scene.file(Path), "");
}

TEST_F(UniLogTest, LineOfSeveralPartsIsOneLine) {
    UniLog log = file_log();
    log_line(&log, "open_tty = ", std::string("/dev/ttyS1"), ", fd = ", 7);
    EXPECT_EQ(scene.file(Path), std::string(Prefix) + "open_tty = /dev/ttyS1, fd = 7\n");
}

}  // namespace
