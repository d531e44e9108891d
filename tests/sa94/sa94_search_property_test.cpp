// The search for a record, held against a reading of the whole memory record by record, in thousands of rings: all
// three archives, both sizes of memory, fill levels around the borders of blocks and segments, up to the third turn.
// What the search wants otherwise in rings that no meter writes stands in sa94_search_oddities_test.cpp.

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Turning;

/// A date as it stands in a record, the year first: such dates compare like moments.
using Stamp = std::array<std::uint8_t, 6>;

class Sa94EveryRing : public ::testing::Test {
  protected:
    static Stamp stamp_in(Sa94Archive archive, std::span<const std::uint8_t> record) {
        Stamp stamp = {record[3], record[2], record[1], 0, 0, 0};
        if (archive != Sa94Archive::Daily) stamp[3] = record[5];
        if (archive == Sa94Archive::Errors) {
            stamp[4] = record[6];
            stamp[5] = record[7];
        }
        return stamp;
    }
    /// What ought to be found: the record of that very date; the oldest record when all are newer; nothing otherwise.
    static Sa94Place expected(Sa94Ring& ring, std::time_t time) {
        const Stamp wanted = stamp_in(ring.archive, ring.record(time));
        const bool exact = (time - ring.at(0)) % (ring.at(1) - ring.at(0)) == 0;  // no record tells more
        std::optional<Stamp> oldest;
        Sa94Place oldest_place;
        const std::size_t size = ring.shape().record_size;
        for (const int segment : {ring.low(), ring.high()}) {
            for (std::uint32_t number = ring.shape().first_block; number < ring.shape().blocks; ++number) {
                const auto block = ring.block(segment, number);
                for (std::size_t position = 0; position < ring.per_block(); ++position) {
                    const auto record = std::span<const std::uint8_t>(block).subspan(position * size, size);
                    if (record[1] == 0xFF) continue;  // never written
                    const Stamp stamp = stamp_in(ring.archive, record);
                    const Sa94Place place{segment, number, static_cast<int>(position)};
                    if (exact && stamp == wanted) return place;
                    if (!oldest || stamp < *oldest) {
                        oldest = stamp;
                        oldest_place = place;
                    }
                }
            }
        }
        return oldest && wanted < *oldest ? oldest_place : Sa94Place{};
    }

    /// Fill levels worth a look: around each border of segments, around some borders of blocks, and any.
    static std::set<std::size_t> levels(const Sa94Ring& ring, std::mt19937& random, std::size_t blocks) {
        const std::size_t half = ring.capacity() / 2;
        const std::size_t around = ring.per_block() + 1;
        std::set<std::size_t> all;
        for (std::size_t segments = 0; segments <= 4; ++segments) {
            const std::size_t border = segments * half;
            for (std::size_t k = border - std::min(border, around); k <= border + around; ++k) all.insert(k);
        }
        for (std::size_t n = 0; n < blocks; ++n) {
            const std::size_t border = (1 + random() % (4 * half / ring.per_block())) * ring.per_block();
            for (const std::size_t level : {border - 1, border, border + 1}) all.insert(level);
            all.insert(random() % (4 * half));
        }
        return all;
    }

    /// A time of any record that was ever written, at its border or between two, or beyond both ends.
    static std::time_t some_time(const Sa94Ring& ring, std::mt19937& random) {
        const std::size_t written = ring.written();
        if (written == 0) return ring.at(0);
        const std::size_t kept = std::min(written, ring.capacity());
        const std::size_t oldest = written - kept;
        switch (random() % 8) {
            case 0:
                return ring.at(written - 1);  // the usual question
            case 1:
                return ring.at(written - 1 - random() % std::min<std::size_t>(kept, 2 * ring.per_block()));
            case 2:
                return ring.at(written) + static_cast<std::time_t>(random() % 7);
            case 3:
                return ring.at(oldest + random() % kept) + 1 + static_cast<std::time_t>(random() % 50);
            case 4:
                return ring.at(random() % written);
            case 5:
                return ring.at(0) - 1;
            default:
                return ring.at(oldest + random() % kept);
        }
    }

    /// How many blocks a search may read: both starts; the halving of each segment for a null block, which has one
    /// step more than that for a time has; two blocks more for the end; 7 or 9 steps of up to two reads in each
    /// segment and the block itself. In an empty segment behind a low one that is full, 32 steps.
    static std::size_t most_reads(const Sa94Ring& ring) {
        const std::size_t steps = ring.shape().blocks == 512 ? 9 : 7;
        const std::size_t half = ring.capacity() / 2;
        const bool in_last_block = ring.written() <= half && ring.written() + ring.per_block() > half;
        const bool wraps = ring.archive != Sa94Archive::Errors && in_last_block;
        return 2 + 2 * (steps + 1) + 2 + (2 * steps + 1) + (wraps ? 32 + 1 : 2 * steps + 1);
    }

    static std::size_t look_through(Sa94Archive archive, bool extended, std::size_t blocks, std::size_t questions,
                                    const std::string& zone = "UTC") {
        Sa94Ring ring(archive, extended, Sa94Turning::EraseSegment, zone);
        std::mt19937 random(static_cast<unsigned>(ring.type()) * 2 + (extended ? 1 : 0));
        std::size_t rings = 0;
        for (const std::size_t level : levels(ring, random, blocks)) {
            ring.append(level - ring.written());
            ++rings;
            for (std::size_t n = 0; n < questions; ++n) {
                const std::time_t time = some_time(ring, random);
                const Sa94Place found = ring.find(time);
                EXPECT_EQ(found, expected(ring, time)) << level << " records, time " << time;
                EXPECT_LE(ring.reads(), most_reads(ring)) << level << " records, time " << time;
            }
            if (::testing::Test::HasFailure()) break;
        }
        return rings;
    }
};

TEST_F(Sa94EveryRing, OfHoursInAShortMemory) {
    EXPECT_GT(look_through(Sa94Archive::Hourly, false, 75, 2), 300U);
}
TEST_F(Sa94EveryRing, OfHoursInALongMemory) {
    EXPECT_GT(look_through(Sa94Archive::Hourly, true, 75, 2), 300U);
}
TEST_F(Sa94EveryRing, OfDaysInAShortMemory) {
    EXPECT_GT(look_through(Sa94Archive::Daily, false, 75, 2), 300U);
}
TEST_F(Sa94EveryRing, OfDaysInALongMemory) {
    EXPECT_GT(look_through(Sa94Archive::Daily, true, 75, 2), 300U);
}
TEST_F(Sa94EveryRing, OfErrorsInAShortMemory) {
    EXPECT_GT(look_through(Sa94Archive::Errors, false, 75, 1), 300U);
}
TEST_F(Sa94EveryRing, OfErrorsInALongMemory) {
    EXPECT_GT(look_through(Sa94Archive::Errors, true, 75, 1), 300U);
}
TEST_F(Sa94EveryRing, OfHoursWhereSummerHasATimeOfItsOwn) {
    EXPECT_GT(look_through(Sa94Archive::Hourly, false, 50, 2, "CET-1CEST,M3.5.0,M10.5.0/3"), 200U);
}

// ---- whatever lies in the memory, a find is no lie

/// The time that the search sees at a place.
std::time_t time_at(Sa94Ring& ring, const Sa94Place& place) {
    const std::size_t size = ring.shape().record_size;
    const auto block = ring.block(place.segment, place.block);
    return recordTime(ring.type(), block.subspan(static_cast<std::size_t>(place.position) * size, size));
}

void expect_truth(Sa94Ring& ring, std::time_t time) {
    const Sa94Place found = ring.find(time);
    if (found == Sa94Place{}) return;
    ASSERT_TRUE(found.segment == ring.low() || found.segment == ring.high());
    ASSERT_LT(found.block, ring.shape().blocks);
    ASSERT_LT(found.position, static_cast<int>(ring.per_block()));
    const bool is_start = found.block == ring.shape().first_block && found.position == 0;
    const std::time_t there = time_at(ring, found);
    EXPECT_TRUE(there == time || (is_start && there > time)) << there << " is not " << time;
}

TEST_F(Sa94EveryRing, ThatErasesNothingOrOneBlockGivesTheRecordOrNone) {
    std::mt19937 random(1);
    for (const auto turning : {Sa94Turning::Overwrite, Sa94Turning::EraseBlockAhead}) {
        for (const auto archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
            Sa94Ring ring(archive, false, turning);
            for (int n = 0; n < 60; ++n) {
                ring.append(random() % (ring.capacity() / 15));
                for (int question = 0; question < 2; ++question) expect_truth(ring, some_time(ring, random));
            }
        }
    }
}

TEST_F(Sa94EveryRing, OfAnyBytesGivesTheRecordOrNone) {
    std::mt19937 random(2);
    for (const auto archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
        Sa94Ring ring(archive, false);
        ring.append(ring.capacity() * 3 / 2);
        for (int n = 0; n < 60; ++n) {
            for (int damage = 0; damage < 20; ++damage) {
                const auto block =
                    ring.block(ring.low() + static_cast<int>(random() % 2), static_cast<std::uint32_t>(random() % 128));
                if (random() % 4 == 0)
                    std::ranges::fill(block, static_cast<std::uint8_t>(random() % 2 == 0 ? 0xFF : 0));
                for (int k = 0; k < 6; ++k) block[random() % 128] = static_cast<std::uint8_t>(random());
            }
            for (int question = 0; question < 2; ++question) expect_truth(ring, some_time(ring, random));
        }
    }
}

TEST_F(Sa94EveryRing, InAGarbledMemoryIsFoundByTheTimeThatStandsThere) {
    std::mt19937 random(3);
    Sa94Ring ring(Sa94Archive::Hourly, false);
    for (int segment = 2; segment <= 3; ++segment) {
        for (std::uint32_t number = 0; number < 128; ++number) {
            for (auto& byte : ring.block(segment, number)) byte = static_cast<std::uint8_t>(random());
        }
    }
    for (std::uint32_t number = 0; number < 128; ++number) {
        expect_truth(ring, time_at(ring, {2, number, static_cast<int>(random() % 4)}));
    }
}

}  // namespace
