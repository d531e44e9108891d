// The table of named byte buffers.

#include "archive/named_buffer.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "core/uni_log.h"
#include "support/scene.h"

namespace {

class NamedBuffers : public ::testing::Test {
  protected:
    bool logged(const std::string& line) const {
        return scene.file("/tmp/buffers.txt").value_or("").find(" : " + line + "\n") != std::string::npos;
    }
    std::size_t log_size() const { return scene.file("/tmp/buffers.txt").value_or("").size(); }
    static bool is_zeroed(std::span<const std::uint8_t> bytes) {
        return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
    }

    Scene scene;
    UniLog log{UniLog::ToFile, "/tmp/buffers.txt", ""};
    NamedBuffer table{3, &log};
};

TEST_F(NamedBuffers, TheFirstNamesGetTheIndicesFromZeroOn) {
    EXPECT_EQ(table.CreateBuffer("@tempbuff", 300), 0);
    EXPECT_EQ(table.CreateBuffer("@intbuff", 10), 1);
    EXPECT_EQ(table.CreateBuffer("@mombuff", 1), 2);
}

TEST_F(NamedBuffers, ANewBufferHasItsSizeAndIsZeroed) {
    const auto bytes = table.GetBuffer(table.CreateBuffer("b", 300));
    ASSERT_EQ(bytes.size(), 300U);
    EXPECT_TRUE(is_zeroed(bytes));
    EXPECT_TRUE(logged("Allocate 300 bytes for buffer b"));
}

TEST_F(NamedBuffers, ATableTakesOneBufferMoreThanItsCapacityAndRefusesTheNext) {
    NamedBuffer two(2, &log);
    EXPECT_EQ(two.CreateBuffer("a", 4), 0);
    EXPECT_EQ(two.CreateBuffer("b", 4), 1);
    EXPECT_EQ(two.CreateBuffer("c", 4), 2);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(two.CreateBuffer("d", 4), -1);
    EXPECT_EQ(two.GetBuffer(3).data(), nullptr) << "a refused buffer has no bytes";
    EXPECT_EQ(two.FindBuffer("d"), -1);
    EXPECT_EQ(two.GetBuffer(2).size(), 4U);
}

TEST_F(NamedBuffers, ATableWithoutCapacityTakesOne) {
    NamedBuffer none(0, &log);
    EXPECT_EQ(none.CreateBuffer("a", 4), 0);
    EXPECT_EQ(none.CreateBuffer("b", 4), -1);
    EXPECT_EQ(none.GetBuffer(1).data(), nullptr);
}

TEST_F(NamedBuffers, AnIndexThatDoesNotExistGivesNull) {
    table.CreateBuffer("a", 4);
    for (const int index : {1, 2, 1000, -1}) EXPECT_EQ(table.GetBuffer(index).data(), nullptr) << index;
}

TEST_F(NamedBuffers, ANameOf150CharactersIsTakenAndFound) {
    const std::string name(150, 'n');
    EXPECT_EQ(table.CreateBuffer(name, 4), 0);
    EXPECT_EQ(table.FindBuffer(name.c_str()), 0);
}

TEST_F(NamedBuffers, ANameOf151CharactersIsRefusedAndLeavesTheNextIndexFree) {
    EXPECT_EQ(table.CreateBuffer(std::string(151, 'n'), 4), -1);
    EXPECT_TRUE(logged("Error:  while naming buffer in NamedBuffer::CreateBuffer"));
    EXPECT_EQ(table.CreateBuffer("a", 4), 0);
}

TEST_F(NamedBuffers, TheFirstOfTwoEqualNamesIsFound) {
    table.CreateBuffer("other", 4);
    table.CreateBuffer("twice", 4);
    table.CreateBuffer("twice", 5);
    EXPECT_EQ(table.FindBuffer("twice"), 1);
}

TEST_F(NamedBuffers, AnUnknownNameAndNoNameAreNotFound) {
    table.CreateBuffer("a", 4);
    EXPECT_EQ(table.FindBuffer("A"), -1);
    EXPECT_EQ(table.FindBuffer(""), -1);
    EXPECT_EQ(table.FindBuffer(nullptr), -1);
}

TEST_F(NamedBuffers, BytesAreAppendedInOrder) {
    const int index = table.CreateBuffer("a", 5);
    for (const std::uint8_t byte : {7, 8, 9}) table.PutByte(byte, index);
    const auto bytes = table.GetBuffer(index);
    EXPECT_EQ((std::array{bytes[0], bytes[1], bytes[2], bytes[3], bytes[4]}), (std::array<std::uint8_t, 5>{7, 8, 9}));
}

TEST_F(NamedBuffers, ABufferThatBecomesFullIsEmptiedAndZeroed) {
    const int index = table.CreateBuffer("a", 4);
    for (int i = 0; i < 4; ++i) table.PutByte(0xFF, index);
    EXPECT_TRUE(is_zeroed(table.GetBuffer(index)));
    table.PutByte(5, index);
    EXPECT_EQ(table.GetBuffer(index)[0], 5) << "the next byte is the first again";
}

TEST_F(NamedBuffers, ABufferOfOneByteIsFullAtOnce) {
    const int index = table.CreateBuffer("a", 1);
    table.PutByte(0xFF, index);
    EXPECT_EQ(table.GetBuffer(index)[0], 0);
}

TEST_F(NamedBuffers, AClearedBufferIsZeroedAndFilledFromItsBeginning) {
    const int index = table.CreateBuffer("a", 4);
    table.PutByte(1, index);
    table.PutByte(2, index);
    table.ClearBuffer(index);
    EXPECT_TRUE(is_zeroed(table.GetBuffer(index)));
    table.PutByte(3, index);
    EXPECT_EQ(table.GetBuffer(index)[0], 3);
}

TEST_F(NamedBuffers, TheFrontIsDroppedAndWritingGoesOnBehindTheRest) {
    const int index = table.CreateBuffer("a", 8);
    for (const std::uint8_t byte : {1, 2, 3, 4, 5}) table.PutByte(byte, index);
    table.DropFront(index, 2);
    table.PutByte(9, index);
    const auto bytes = table.GetBuffer(index);
    EXPECT_EQ((std::array{bytes[0], bytes[1], bytes[2], bytes[3]}), (std::array<std::uint8_t, 4>{3, 4, 5, 9}));
}

TEST_F(NamedBuffers, DroppingMoreThanThereIsStaysWithinTheBuffer) {
    const int index = table.CreateBuffer("a", 4);
    table.PutByte(1, index);
    for (const int n : {1000, 4, -1, 0, 1}) table.DropFront(index, n);
    table.PutByte(6, index);
    EXPECT_EQ(table.GetBuffer(index)[0], 6);
}

TEST_F(NamedBuffers, NothingIsDoneForAnIndexThatDoesNotExist) {
    table.CreateBuffer("a", 4);
    table.PutByte(1, 0);
    const std::size_t before = log_size();
    for (const int index : {1, 3, -1, 1000}) {
        table.PutByte(2, index);
        table.ClearBuffer(index);
        table.DropFront(index, 1);
    }
    EXPECT_EQ(table.GetBuffer(0)[0], 1);
    EXPECT_EQ(log_size(), before);
}

TEST_F(NamedBuffers, ATableMayBeWithoutALog) {
    NamedBuffer silent(1, nullptr);
    EXPECT_EQ(silent.CreateBuffer(std::string(151, 'n'), 4), -1);
    EXPECT_EQ(silent.CreateBuffer("a", 4), 0);
}

}  // namespace
