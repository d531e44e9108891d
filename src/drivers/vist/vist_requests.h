#pragma once
// The conversations of the VIST meter as data: what to send, which answer to expect, what to do with its value. A
// conversation is a table of rows that VISTFunctions::do_request walks from top to bottom.
//
// CALL opens a dialog, VDN selects a virtual device, END closes it; tables without END leave it open on purpose.

#include <array>
#include <cstddef>
#include <cstdint>

/// How a command is built out of its format.
enum VISTParam : int {
    PLAIN = 0,
    NETADDR = -1,   ///< with the meter's network number
    VDNUMBER = -2,  ///< with the virtual device number
    SETPOS = -3,    ///< with the record position handed to do_request
};

/// What becomes of a scanned value.
enum VISTReturn : char {
    RET_NONE = 0,
    RET_INT = 'i',  ///< the third field is the value asked for
    RET_VDN = 'n',  ///< the second field must be the virtual device that was selected
    RET_NEW = 'k',  ///< a step in the archive; noted in the log only
};

struct VISTRequest {
    const char* name;             ///< of the conversation, for log lines
    const char* request_format;   ///< ends in a carriage return
    int param_index;              ///< VISTParam
    bool is_binary;               ///< the answer is a packet, not a text frame
    const char* response_format;  ///< scanf format of a text answer
    int value_index;              ///< field that must have been scanned for ret_kind to apply; -1: none
    char ret_kind;                ///< VISTReturn
    int min_fields;               ///< fewest fields that must have been scanned
    std::uint8_t packet_type;     ///< of a binary answer
};

namespace vist {

constexpr const char* NameAnswer = "HL0[%d:%d]{NAME=%s}>";
constexpr const char* OkAnswer = "HL0[%d:%d]{OK}>";

// clang-format off
//                                request             built by  binary answer                   value returned  fields type
constexpr VISTRequest Call     = {"", "CALL %d\r",         NETADDR,  false, NameAnswer,             -1, RET_NONE, 3, 0};
constexpr VISTRequest Vdn      = {"", "VDN %d\r",          VDNUMBER, false, NameAnswer,              1, RET_VDN,  3, 0};
constexpr VISTRequest End      = {"", "END\r",             PLAIN,    false, "",                     -1, RET_NONE, 0, 0};
constexpr VISTRequest Dot      = {"", ".\r",               PLAIN,    false, OkAnswer,               -1, RET_NONE, 0, 0};
constexpr VISTRequest Ver      = {"", "VER\r",             PLAIN,    false, "HL0[%d:%d]{VER=%d}>",   2, RET_INT,  3, 0};
constexpr VISTRequest Vdc      = {"", "VDC\r",             PLAIN,    false, "HL0[%d:%d]{VDC=%d}>",   2, RET_INT,  3, 0};
constexpr VISTRequest ArcCount = {"", "/ARC/DLD RC\r",     PLAIN,    false, "HL0[%d:%d]{RC=%d}>",    2, RET_INT,  3, 0};
constexpr VISTRequest ArcSet   = {"", "/ARC/DLD SET %d\r", SETPOS,   false, OkAnswer,                0, RET_NEW,  2, 0};
constexpr VISTRequest ArcOld   = {"", "/ARC/DLD OLD\r",    PLAIN,    false, OkAnswer,                0, RET_NEW,  2, 0};
constexpr VISTRequest ArcHead  = {"", "/ARC/DLD H\r",      PLAIN,    true,  "",                     -1, RET_NONE, 0, 20};
constexpr VISTRequest ArcNext  = {"", "/ARC/DLD +\r",      PLAIN,    true,  "",                     -1, RET_NEW,  0, 21};
constexpr VISTRequest ArcPrev  = {"", "/ARC/DLD -\r",      PLAIN,    true,  "",                     -1, RET_NEW,  0, 21};
constexpr VISTRequest ArcThis  = {"", "/ARC/DLD =\r",      PLAIN,    true,  "",                     -1, RET_NEW,  0, 21};
constexpr VISTRequest Spc0     = {"", "/SYS SPC 0\r",      PLAIN,    true,  "",                     -1, RET_NONE, 0, 30};
constexpr VISTRequest Spc1     = {"", "/SYS SPC 1\r",      PLAIN,    true,  "",                     -1, RET_NONE, 0, 31};
constexpr VISTRequest Cfg1     = {"", "/SYS CFG 1\r",      PLAIN,    true,  "",                     -1, RET_NONE, 0, 33};
constexpr VISTRequest MonG     = {"", "/MON G\r",          PLAIN,    true,  "",                     -1, RET_NONE, 0, 10};
constexpr VISTRequest MonC     = {"", "/MON C\r",          PLAIN,    true,  "",                     -1, RET_NONE, 0, 11};
constexpr VISTRequest MonTG    = {"", "/MON TG\r",         PLAIN,    true,  "",                     -1, RET_NONE, 0, 12};
// clang-format on

/// A conversation: rows in order, all under one name.
template <std::size_t Count>
constexpr std::array<VISTRequest, Count> conversation(const char* name, const VISTRequest (&rows)[Count]) {
    std::array<VISTRequest, Count> table = std::to_array(rows);
    for (VISTRequest& row : table) row.name = name;
    return table;
}

// clang-format off
inline constexpr auto reqDevCRC                = conversation("reqDevCRC", {Call, Ver, End});
inline constexpr auto reqVirtDevCount          = conversation("VirtDevCnt", {Call, Vdc, End});
inline constexpr auto reqDevSpecials           = conversation("VirtDevSpc", {Call, Spc0, End});
inline constexpr auto reqVirtDevSpecials       = conversation("VirtDevSpc", {Call, Vdn, Spc1, End});
inline constexpr auto reqVirtDevConfig         = conversation("VirtDevSpc", {Call, Vdn, Cfg1, End});
inline constexpr auto reqMomentG               = conversation("MomentG", {Call, Vdn, MonG, End});
inline constexpr auto reqMomentTG              = conversation("MomentG", {Call, Vdn, MonTG, End});
inline constexpr auto reqMomentC               = conversation("MomentC", {Call, Vdn, MonC, End});
inline constexpr auto reqArchiveHeader         = conversation("Archive Header", {Call, Vdn, ArcHead, End});
inline constexpr auto reqArchiveRecordCount    = conversation("Archive Record Count", {Call, ArcCount, End});
inline constexpr auto reqArchiveSetOldPosition = conversation("Archive Old Pos", {Call, Vdn, ArcOld});
inline constexpr auto reqArchiveCurrentData    = conversation("ArchiveCurrent", {ArcThis});
inline constexpr auto reqArchiveSetPosData     = conversation("Archive Set Pos Data", {Call, Vdn, ArcSet});
inline constexpr auto reqArchiveNext           = conversation("ArchiveNext", {ArcNext});
inline constexpr auto reqArchivePrev           = conversation("ArchivePrev", {ArcPrev});
inline constexpr auto reqArchiveEnd            = conversation("ArchiveH", {End});
inline constexpr auto reqGetRecordByNum        = conversation("Archive Get Record By Num", {Call, Vdn, ArcSet, ArcThis, End});
inline constexpr auto reqReturn                = conversation("Return .", {Dot});
// clang-format on

}  // namespace vist
