#include "core/text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Text, ThatFitsTheBufferIsWhole) {
    EXPECT_EQ(format_cut(8, "%s/%d", "abcde", 1), "abcde/1");
}

TEST(Text, ThatIsLongerThanTheBufferLosesItsEnd) {
    EXPECT_EQ(format_cut(7, "%s/%d", "abcde", 1), "abcde/");
    EXPECT_EQ(format_cut(1, "%s", "abcde"), "");
}

TEST(Text, OfAPathIsCutAtTheLastByteOfItsBuffer) {
    EXPECT_EQ(format_cut(256, "/tmp/%s", std::string(300, 'u').c_str()), "/tmp/" + std::string(250, 'u'));
}

TEST(Text, IsCutToALength) {
    EXPECT_EQ(cut("abcde", 3), "abc");
    EXPECT_EQ(cut("abcde", 5), "abcde");
    EXPECT_EQ(cut("abcde", 9), "abcde");
    EXPECT_EQ(cut("abcde", 0), "");
}

TEST(Text, EndsAtItsFirstZeroByte) {
    EXPECT_EQ(cut(std::string_view("ab\0cd", 5), 4), "ab");
    EXPECT_EQ(cut(std::string_view("\0cd", 3), 4), "");
}

TEST(Text, OfACommandLeavesTheRestOfItsBufferToTheOperand) {
    EXPECT_EQ(operand_in_command(256, "mkdir -p ", "/tmp/u"), "/tmp/u");
    EXPECT_EQ(operand_in_command(12, "mkdir -p ", "/tmp/u"), "/t");
    EXPECT_EQ(operand_in_command(15, "mkdir -p ", "/tmp/u"), "/tmp/");
    EXPECT_EQ(operand_in_command(16, "mkdir -p ", "/tmp/u"), "/tmp/u");
}

TEST(Text, OfACommandThatFillsItsBufferLeavesNoOperand) {
    EXPECT_EQ(operand_in_command(10, "mkdir -p ", "/tmp/u"), "");
    EXPECT_EQ(operand_in_command(5, "mkdir -p ", "/tmp/u"), "");
    EXPECT_EQ(operand_in_command(0, "mkdir -p ", "/tmp/u"), "");
}

}  // namespace
