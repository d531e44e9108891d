// The conversations of the meter, row by row, against a table of their own.

#include "drivers/vist/vist_requests.h"

#include <map>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace vist;

constexpr const char* Name = "HL0[%d:%d]{NAME=%s}>";
constexpr const char* Ok = "HL0[%d:%d]{OK}>";

/// A command and all that goes with it, as plain numbers.
struct Command {
    const char* command;
    int param_index;
    const char* answer;  ///< nullptr: a packet
    int value_index;
    int ret_kind;
    int min_fields;
    int packet_type;
};

const std::map<std::string, Command> Commands = {
    {"CALL", {"CALL %d\r", -1, Name, -1, 0, 3, 0}},
    {"VDN", {"VDN %d\r", -2, Name, 1, 'n', 3, 0}},
    {"END", {"END\r", 0, "", -1, 0, 0, 0}},
    {".", {".\r", 0, Ok, -1, 0, 0, 0}},
    {"VER", {"VER\r", 0, "HL0[%d:%d]{VER=%d}>", 2, 'i', 3, 0}},
    {"VDC", {"VDC\r", 0, "HL0[%d:%d]{VDC=%d}>", 2, 'i', 3, 0}},
    {"RC", {"/ARC/DLD RC\r", 0, "HL0[%d:%d]{RC=%d}>", 2, 'i', 3, 0}},
    {"SET", {"/ARC/DLD SET %d\r", -3, Ok, 0, 'k', 2, 0}},
    {"OLD", {"/ARC/DLD OLD\r", 0, Ok, 0, 'k', 2, 0}},
    {"H", {"/ARC/DLD H\r", 0, nullptr, -1, 0, 0, 20}},
    {"+", {"/ARC/DLD +\r", 0, nullptr, -1, 'k', 0, 21}},
    {"-", {"/ARC/DLD -\r", 0, nullptr, -1, 'k', 0, 21}},
    {"=", {"/ARC/DLD =\r", 0, nullptr, -1, 'k', 0, 21}},
    {"SPC 0", {"/SYS SPC 0\r", 0, nullptr, -1, 0, 0, 30}},
    {"SPC 1", {"/SYS SPC 1\r", 0, nullptr, -1, 0, 0, 31}},
    {"CFG 1", {"/SYS CFG 1\r", 0, nullptr, -1, 0, 0, 33}},
    {"G", {"/MON G\r", 0, nullptr, -1, 0, 0, 10}},
    {"C", {"/MON C\r", 0, nullptr, -1, 0, 0, 11}},
    {"TG", {"/MON TG\r", 0, nullptr, -1, 0, 0, 12}},
};

struct Conversation {
    std::span<const VISTRequest> rows;
    const char* name;
    std::vector<std::string> commands;
};

const std::vector<Conversation> Conversations = {
    {reqDevCRC, "reqDevCRC", {"CALL", "VER", "END"}},
    {reqVirtDevCount, "VirtDevCnt", {"CALL", "VDC", "END"}},
    {reqDevSpecials, "VirtDevSpc", {"CALL", "SPC 0", "END"}},
    {reqVirtDevSpecials, "VirtDevSpc", {"CALL", "VDN", "SPC 1", "END"}},
    {reqVirtDevConfig, "VirtDevSpc", {"CALL", "VDN", "CFG 1", "END"}},
    {reqMomentG, "MomentG", {"CALL", "VDN", "G", "END"}},
    {reqMomentTG, "MomentG", {"CALL", "VDN", "TG", "END"}},
    {reqMomentC, "MomentC", {"CALL", "VDN", "C", "END"}},
    {reqArchiveHeader, "Archive Header", {"CALL", "VDN", "H", "END"}},
    {reqArchiveRecordCount, "Archive Record Count", {"CALL", "RC", "END"}},
    {reqArchiveSetOldPosition, "Archive Old Pos", {"CALL", "VDN", "OLD"}},
    {reqArchiveCurrentData, "ArchiveCurrent", {"="}},
    {reqArchiveSetPosData, "Archive Set Pos Data", {"CALL", "VDN", "SET"}},
    {reqArchiveNext, "ArchiveNext", {"+"}},
    {reqArchivePrev, "ArchivePrev", {"-"}},
    {reqArchiveEnd, "ArchiveH", {"END"}},
    {reqGetRecordByNum, "Archive Get Record By Num", {"CALL", "VDN", "SET", "=", "END"}},
    {reqReturn, "Return .", {"."}},
};

TEST(VistRequests, EachConversationHasItsRowsInOrderAndEachRowTellsHowItIsBuiltAndWhatIsExpected) {
    ASSERT_EQ(Conversations.size(), 18U);
    for (const Conversation& conversation : Conversations) {
        ASSERT_EQ(conversation.rows.size(), conversation.commands.size()) << conversation.name;
        for (std::size_t i = 0; i < conversation.rows.size(); ++i) {
            SCOPED_TRACE(std::string(conversation.name) + ", row " + std::to_string(i));
            const VISTRequest& row = conversation.rows[i];
            const Command& wanted = Commands.at(conversation.commands[i]);
            EXPECT_STREQ(row.name, conversation.name);
            EXPECT_STREQ(row.request_format, wanted.command);
            EXPECT_EQ(row.param_index, wanted.param_index);
            EXPECT_EQ(row.is_binary, wanted.answer == nullptr);
            EXPECT_STREQ(row.response_format, wanted.answer != nullptr ? wanted.answer : "");
            EXPECT_EQ(row.value_index, wanted.value_index);
            EXPECT_EQ(int{row.ret_kind}, wanted.ret_kind);
            EXPECT_EQ(row.min_fields, wanted.min_fields);
            EXPECT_EQ(int{row.packet_type}, wanted.packet_type);
        }
    }
}

}  // namespace
