#include "archive/record_time_scan.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_holder.h"
#include "support/scene.h"

namespace {

/// The rule itself: every piece that fgets hands over in 64 bytes, every piece through sscanf.
long plain_loop(const std::string& path) {
    long greatest = 0;
    std::FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return 0;
    char piece[64];
    while (std::fgets(piece, sizeof piece, file) != nullptr) {
        long time = 0;
        int quality = 0;
        double value = 0;
        if (std::sscanf(piece, "%ld,%d,%lf\n", &time, &quality, &value) == 3 && time > greatest) greatest = time;
    }
    std::fclose(file);
    return greatest;
}

/// Texts as a storage may hold them: lines of this daemon, what a power cut leaves of them, and anything else.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string text(int lines) {
        std::string whole;
        for (int i = 0; i < lines; ++i) whole += line();
        if (chance(4)) whole.resize(below(whole.size() + 1));  // the last line is torn
        return whole;
    }

    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  private:
    bool chance(unsigned one_in) { return random_() % one_in == 0; }

    template <std::size_t Count>
    const char* one_of(const char* const (&texts)[Count]) {
        return texts[below(Count)];
    }

    std::string digits(std::size_t most) {
        std::string text;
        for (std::size_t count = 1 + below(most); count > 0; --count) text += static_cast<char>('0' + below(10));
        return text;
    }

    std::string time() {
        constexpr const char* Odd[] = {"2147483647",
                                       "2147483648",
                                       "-2147483648",
                                       "-1",
                                       "0",
                                       "+7",
                                       "007",
                                       "9223372036854775807",
                                       "9223372036854775808",
                                       "99999999999999999999999",
                                       "0x10",
                                       "1e3",
                                       " 5",
                                       "\t6",
                                       "--1",
                                       "",
                                       "-",
                                       "+",
                                       "-0",
                                       "4294967295",
                                       "1700000000 ",
                                       "1 700"};
        return chance(6) ? one_of(Odd) : "17" + digits(8);
    }
    std::string quality() {
        constexpr const char* Odd[] = {"0",    "-1", "+192",        " 192", "192 ", "0xC0",
                                       "19 2", "",   "99999999999", "1.5",  "\v3",  "-"};
        return chance(6) ? one_of(Odd) : "192";
    }
    std::string value() {
        constexpr const char* Odd[] = {
            "nan",     "-nan", "NAN(1)", "nan(", "inf", "-INF", "infinity", "infinit", "1e5", "1e",   "1e+", "1E-3",
            "0x1.8p3", "0x",   "0x.",    ".5",   "5.",  ".",    "-",        "+1",      " 1",  "1 ",   "1,5", "",
            "1e999",   "\r",   "-.",     "1..2", "--1", "1e5x", "12.5junk", "i",       "n",   "0x1p", "1d5", "\t1"};
        if (chance(4)) return one_of(Odd);
        return (chance(8) ? "-" : "") + digits(chance(20) ? 60 : 5) + "." + digits(6);
    }

    std::string line() {
        switch (below(24)) {
            case 0:
                return "\n";
            case 1:
                return std::string(below(140), '\0');
            case 2:
                return std::string(below(140), '\0') + "\n";
            case 3:
                return noise();
            case 4:
                return time() + "," + quality() + "," + value();  // its end is lost
            case 5:
                return time() + "," + quality() + "," + value() + "\r\n";
            case 6:
                return time() + " , " + quality() + "," + value() + "\n";
            case 7:
                return time() + ", " + quality() + ", " + value() + "\n";
            case 8:
                return padding() + good();
            case 9:
                return time() + "," + quality() + "," + value() + padding() + "\n";
            case 10:
                return torn(good());
            case 11:
                return with_a_zero(good());
            case 12:
                return std::string(60 + below(8), '0') + good();
            case 13:
                return digits(63) + good();
            default:
                return chance(3) ? time() + "," + quality() + "," + value() + "\n" : good();
        }
    }

    std::string good() { return "17" + digits(8) + ",192," + digits(5) + ".250000\n"; }
    std::string torn(std::string text) {
        text.resize(below(text.size()));
        return text;
    }
    std::string with_a_zero(std::string text) {
        text[below(text.size())] = '\0';
        return text;
    }
    std::string padding() {
        constexpr const char* Kinds[] = {" ", "\t", "x", "0", ",", "-", "\r", "\v\f"};
        const std::string kind = one_of(Kinds);
        std::string text;
        for (std::size_t length = below(130); text.size() < length;) text += kind;
        return text;
    }
    std::string noise() {
        std::string text;
        for (std::size_t length = below(150); text.size() < length;) text += static_cast<char>(random_());
        return text;
    }

    std::mt19937 random_;
};

class Holder : public ArchiveHolder {
  public:
    explicit Holder(const std::string& meter) { uuid = meter; }
};

class RecordTimeScanTest : public ::testing::Test {
  protected:
    static constexpr char Path[] = "/mnt/storage/u/1/tc_archives/Q";

    void SetUp() override { scene.make_tree("u"); }

    long by_the_rule(const std::string& text) {
        put(text);
        return plain_loop(scene.real_path(Path));
    }
    void put(const std::string& text) {
        std::FILE* file = std::fopen(scene.real_path(Path).c_str(), "w");
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
        std::fclose(file);
    }

    static long in_blocks(const std::string& text, const std::vector<std::size_t>& borders) {
        RecordTimeScan scan;
        std::size_t begin = 0;
        for (const std::size_t border : borders) {
            scan.feed(std::string_view(text).substr(begin, border - begin));
            begin = border;
        }
        scan.feed(std::string_view(text).substr(begin));
        return scan.finish();
    }

    Scene scene;
    Holder holder{"u"};
};

TEST_F(RecordTimeScanTest, OfNothingIsZero) {
    EXPECT_EQ(RecordTimeScan().finish(), 0);
    EXPECT_EQ(in_blocks("", {}), 0);
}

TEST_F(RecordTimeScanTest, TakesALineWhereverTheBorderOfABlockLies) {
    const std::string text = "1700000000,192,12.345000\n1700007200,0,-1.500000\n1700003600,192,0.000000\n";
    for (std::size_t first = 0; first <= text.size(); ++first) {
        for (std::size_t second = first; second <= text.size(); ++second) {
            EXPECT_EQ(in_blocks(text, {first, second}), 1700007200) << first << " " << second;
        }
    }
}

TEST_F(RecordTimeScanTest, TakesALineByteAfterByte) {
    RecordTimeScan scan;
    for (const char& byte : std::string("1700000000,192,12.345000\n1700007200,0,1")) scan.feed({&byte, 1});
    EXPECT_EQ(scan.finish(), 1700007200);
}

TEST_F(RecordTimeScanTest, OverLongLineIsLookedAtInPiecesOf63Bytes) {
    EXPECT_EQ(in_blocks(std::string(63, 'x') + "5,192,1.000000\n", {}), 5);
    EXPECT_EQ(in_blocks(std::string(62, 'x') + "5,192,1.000000\n", {}), 0);
    EXPECT_EQ(in_blocks("7,192,1." + std::string(55, '0') + "9,192,1\n", {}), 9);
}

TEST_F(RecordTimeScanTest, AgreesWithThePlainLoopOnWhatAStorageMayHold) {
    Generator generator(20240302);
    for (int round = 0; round < 4000; ++round) {
        const std::string text = generator.text(static_cast<int>(1 + generator.below(30)));
        const long expected = by_the_rule(text);
        ASSERT_EQ(holder.last_record_time("Q", 1, "tc_archives"), expected)
            << round << ": " << ::testing::PrintToString(text);
        std::vector<std::size_t> borders(generator.below(6));
        for (std::size_t& border : borders) border = generator.below(text.size() + 1);
        std::sort(borders.begin(), borders.end());
        ASSERT_EQ(in_blocks(text, borders), expected) << round << ": " << ::testing::PrintToString(text);
    }
}

TEST_F(RecordTimeScanTest, AgreesWithThePlainLoopWithABorderAtEveryByte) {
    Generator generator(5);
    for (int round = 0; round < 150; ++round) {
        const std::string text = generator.text(6);
        const long expected = by_the_rule(text);
        for (std::size_t border = 0; border <= text.size(); ++border) {
            ASSERT_EQ(in_blocks(text, {border}), expected) << border << ": " << ::testing::PrintToString(text);
        }
    }
}

TEST_F(RecordTimeScanTest, AgreesWithThePlainLoopOnFilesOfManyBlocks) {
    Generator generator(77);
    for (int round = 0; round < 40; ++round) {
        // A run in front moves the lines over the borders of the blocks of a long file.
        const std::string text = std::string(generator.below(100), 'x') + "\n" + generator.text(12'000);
        const long expected = by_the_rule(text);
        ASSERT_EQ(holder.last_record_time("Q", 1, "tc_archives"), expected) << round;
    }
}

TEST_F(RecordTimeScanTest, GreatestLineIsFoundAtEveryPlaceAroundTheBordersOfBlocks) {
    const std::string greatest = "2000000000,192,1.000000\n";
    for (const std::size_t block : {4096U, 8192U, 16384U, 32768U, 65536U}) {
        for (std::size_t before = 0; before <= greatest.size() + 1; ++before) {
            std::string text;
            while (text.size() + 24 <= block - before) text += "1700000000,192,1.000000\n";
            text.insert(0, block - before - text.size(), '\n');
            put(text + greatest + "1700000000,192,1.000000\n");
            ASSERT_EQ(holder.last_record_time("Q", 1, "tc_archives"), 2000000000) << block << " " << before;
        }
    }
}

}  // namespace
