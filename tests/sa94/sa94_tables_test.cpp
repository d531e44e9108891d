// What differs between the firmwares of the family, and the names that the meter's status decides.

#include "drivers/sa94/sa94_tables.h"

#include <set>
#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr std::uint8_t AnyStatus[] = {0x00, 0x02, 0x04, 0x08, 0x20, 0x40, 0x44, 0x7F, 0x3B, 0x15};

// ---- items

TEST(Sa94Tables, ItemsAreNumberedFromOne) {
    ASSERT_EQ(ItemNames.size(), 57U);
    for (int key = 0; key <= 55; ++key) {
        const bool underscored = key == 19 || key == 20 || key == 47 || key == 48;
        EXPECT_EQ(ItemNames.at(key), (underscored ? "_A" : "A") + std::to_string(key + 1));
    }
    EXPECT_EQ(ItemNames.at(19), "_A20");
    EXPECT_EQ(ItemNames.at(48), "_A49");
    EXPECT_EQ(ItemNames.at(56), "X");
}

// ---- layouts

template <typename Rows>
std::vector<int> ids_of(const Rows& rows) {
    std::vector<int> ids;
    for (const auto& row : rows) ids.push_back(row.id);
    return ids;
}

TEST(Sa94Tables, RowsStandInTheirOrder) {
    EXPECT_EQ(ids_of(HourlyLayouts), (std::vector<int>{0, 3, 10, 7, 5, 6, 4, 11, 9, 12, 14, 16, 15, 17}));
    EXPECT_EQ(ids_of(DailyLayouts), (std::vector<int>{3, 0, 4, 11, 9, 12, 10, 7, 5, 6, 14, 15, 16, 17}));
    EXPECT_EQ(ids_of(CurrentParameters), (std::vector<int>{3, 10, 7, 6, 11, 9, 12, 14, 16, 15, 17}));
}

TEST(Sa94Tables, ALayoutFitsItsRecordAndHasRoomForThirtyTwoColumns) {
    for (const auto* layouts : {&HourlyLayouts, &DailyLayouts}) {
        for (const SA94Layout& layout : *layouts) {
            int size = 0;
            for (const SA94Column& column : layout.columns) size += column.size;
            const bool small = std::set<int>{0, 1, 3, 5, 8, 10}.contains(layout.id);
            EXPECT_LE(size, small ? 32 : 64) << layout.id;
            EXPECT_LE(layout.columns.size(), 32U) << layout.id;
        }
    }
}

TEST(Sa94Tables, ParametersStandInTheOrderOfTheirCodes) {
    for (const SA94ParameterRow& row : CurrentParameters) {
        int before = -1;
        for (const SA94CurrentParameter& entry : row.entries) {
            if (!entry.active) continue;
            EXPECT_GT(entry.code, before) << row.id;
            before = entry.code;
        }
    }
}

// ---- tubes

TEST(Sa94Tables, DiametersByTheirCodes) {
    constexpr int Diameters[] = {10, 15, 25, 40, 50, 80, 100, 150, 200, 300, 400, 6, 10, 10};
    for (int code = 0; code < static_cast<int>(std::size(Diameters)); ++code) {
        EXPECT_EQ(tube_diameter(code), Diameters[code]) << code;
    }
    EXPECT_EQ(tube_diameter(255), 10);
}

TEST(Sa94Tables, GreatestFlowsByTheirCodes) {
    constexpr float Flows[11][11] = {
        {0.25F, 0.32F, 0.4F, 0.5F, 0.6F, 0.8F, 1, 1.25F, 1.6F, 2, 2.5F},
        {0.6F, 0.8F, 1, 1.25F, 1.6F, 2, 2.5F, 3.2F, 4, 5, 6},
        {1.6F, 2, 2.5F, 3.2F, 4, 5, 6, 8, 10, 12.5F, 16},
        {4, 5, 6, 8, 10, 12.5F, 16, 20, 25, 32, 40},
        {6, 8, 10, 12.5F, 16, 20, 25, 32, 40, 50, 60},
        {16, 20, 25, 32, 40, 50, 60, 80, 100, 125, 160},
        {25, 32, 40, 50, 60, 80, 100, 125, 160, 200, 250},
        {60, 80, 100, 125, 160, 200, 250, 320, 400, 500, 600},
        {100, 125, 160, 200, 250, 320, 400, 500, 600, 800, 1000},
        {250, 320, 400, 500, 600, 800, 1000, 1250, 1600, 2000, 2500},
        {400, 500, 600, 800, 1000, 1250, 1600, 2000, 2500, 3200, 4000},
    };
    for (int dn = 0; dn <= 10; ++dn) {
        for (int q = 0; q <= 10; ++q) EXPECT_EQ(flow_limit(dn, q), Flows[dn][q]) << dn << " " << q;
    }
}

TEST(Sa94Tables, BeyondTheTableThereIsNoGreatestFlow) {
    EXPECT_EQ(flow_limit(11, 0), -1.0F);
    EXPECT_EQ(flow_limit(0, 11), -1.0F);
    EXPECT_EQ(flow_limit(255, 255), -1.0F);
}

// ---- names of current parameters

std::string current(std::string name, int firmware_id, std::uint8_t status) {
    renameCurrentParameter(name, firmware_id, status);
    return name;
}

TEST(Sa94Names, TheThirdTemperatureNeedsItsBitInEveryFirmware) {
    for (int id = 0; id <= 17; ++id) {
        EXPECT_EQ(current("T3", id, 0x04), "T3") << id;
        EXPECT_EQ(current("T3", id, 0x7F), "T3") << id;
        EXPECT_EQ(current("T3", id, 0x00), "") << id;
        EXPECT_EQ(current("T3", id, 0x7B), "") << id;
    }
}

TEST(Sa94Names, FlowsAreMassesUnlessBothBitsAreSet) {
    for (const int id : {14, 15, 16, 17}) {
        for (const std::uint8_t status : {0x00, 0x04, 0x40, 0x3F, 0x7B}) {
            EXPECT_EQ(current("p1", id, status), "IM1") << id << " " << int{status};
            EXPECT_EQ(current("p2", id, status), "IM2") << id << " " << int{status};
        }
        for (const std::uint8_t status : {0x44, 0x7F, 0x54}) {
            EXPECT_EQ(current("p1", id, status), "IQ1") << id << " " << int{status};
            EXPECT_EQ(current("p2", id, status), "IQ2") << id << " " << int{status};
        }
    }
}

TEST(Sa94Names, TheThirdFlowIsAMassIfAnyOfThreeBitsIsSet) {
    for (const int id : {14, 17}) {
        for (const std::uint8_t status : {0x02, 0x08, 0x20, 0x2A, 0x7F}) EXPECT_EQ(current("p3", id, status), "IM3");
        for (const std::uint8_t status : {0x00, 0x55, 0x44, 0x10}) EXPECT_EQ(current("p3", id, status), "IQ3");
    }
}

TEST(Sa94Names, FirmwaresBelowFourteenKeepTheNamesOfTheirFlows) {
    for (int id = 0; id <= 13; ++id) {
        for (const char* name : {"p1", "p2", "p3"}) EXPECT_EQ(current(name, id, 0x7F), name) << id;
    }
}

TEST(Sa94Names, AllOtherParametersKeepTheirNames) {
    for (const char* name : {"M1", "M2", "Q1", "T1", "T2", "dT", "IE1", "IM1", "IQ2", "IT1", "P1", "P2", ""}) {
        for (const std::uint8_t status : AnyStatus) EXPECT_EQ(current(name, 17, status), name);
    }
}

// ---- names of archive items

struct Renaming {
    const char* name;
    std::uint8_t status;
    const char* hourly;
    const char* daily;
};

TEST(Sa94Names, FlowsInTheArchivesGoByTheStatus) {
    constexpr Renaming Renamings[] = {
        {"p1", 0x00, "A12", "A40"}, {"p1", 0x40, "A12", "A40"}, {"p1", 0x04, "A12", "A40"}, {"p1", 0x44, "A6", "A34"},
        {"p2", 0x00, "A14", "A42"}, {"p2", 0x3B, "A14", "A42"}, {"p2", 0x44, "A8", "A36"},  {"p2", 0x7F, "A8", "A36"},
        {"p3", 0x02, "A16", "A44"}, {"p3", 0x08, "A16", "A44"}, {"p3", 0x20, "A16", "A44"}, {"p3", 0x00, "A10", "A38"},
        {"p3", 0x55, "A10", "A38"},
    };
    for (const Renaming& each : Renamings) {
        for (const int id : {14, 15, 16, 17}) {
            EXPECT_EQ(renameArchiveItem(0, each.name, id, each.status), each.hourly) << each.name << +each.status;
            EXPECT_EQ(renameArchiveItem(1, each.name, id, each.status), each.daily) << each.name << +each.status;
        }
    }
}

TEST(Sa94Names, FirmwaresBelowFourteenKeepTheNamesInTheArchives) {
    for (int id = 0; id <= 13; ++id) {
        for (const char* name : {"p1", "p2", "p3"}) {
            for (const int type : {0, 1}) EXPECT_EQ(renameArchiveItem(type, name, id, 0x7F), name) << id;
        }
    }
}

TEST(Sa94Names, OtherArchivesAndOtherItemsKeepTheirNames) {
    for (const int type : {-1, 2, 3, 4}) EXPECT_EQ(renameArchiveItem(type, "p1", 17, 0x44), "p1") << type;
    for (const char* name : {"A1", "A12", "_A20", "A47", "IM1", "P1", "p4", ""}) {
        for (const std::uint8_t status : AnyStatus) EXPECT_EQ(renameArchiveItem(0, name, 17, status), name);
    }
}

}  // namespace
