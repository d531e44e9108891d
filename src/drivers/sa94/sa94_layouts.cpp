// The records in the meter's memory, column by column.

#include <algorithm>

#include "drivers/sa94/sa94_tables.h"

namespace {

struct Scale {
    float factor;
    int operation;
};

constexpr Scale Plain = {1.0F, Multiply};
constexpr Scale Hundredth = {0.01F, Multiply};
constexpr Scale Energy = {MWhToGcal, Multiply};
constexpr Scale Pressure = {MPaToTechnicalAtmospheres, Multiply};

static_assert(std::bit_cast<std::uint32_t>(Hundredth.factor) == 0x3C23D70A);

constexpr Scale per(float divisor) {
    return {divisor, Divide};
}

constexpr SA94Column Date = {"", true, 1.0F, Multiply, 4, ColumnDate};
constexpr SA94Column Hour = {"", true, 1.0F, Multiply, 1, ColumnHour};

constexpr SA94Column real(const char* name, Scale scale = Plain) {
    return {name, true, scale.factor, scale.operation, 4, ColumnFloat};
}

constexpr SA94Column word(const char* name, Scale scale = Plain) {
    return {name, true, scale.factor, scale.operation, 2, ColumnWord};
}

constexpr SA94Column skip(int bytes) {
    return {"", false, 1.0F, Multiply, bytes, ColumnSkipped};
}

template <std::size_t... Sizes>
constexpr auto join(const std::array<SA94Column, Sizes>&... parts) {
    std::array<SA94Column, (Sizes + ...)> all{};
    auto end = all.begin();
    ((end = std::copy(parts.begin(), parts.end(), end)), ...);
    return all;
}

// clang-format off
// ---- hours. The number behind a column is its place in the record.

constexpr std::array HourBegin = {
    Date,                          // 0
    skip(1),                       // 4, the status
    Hour,                          // 5
};
constexpr std::array HourFrom16 = {
    word("_A20", Hundredth),       // 16
    word("_A21", Hundredth),       // 18
    word("A22", Hundredth),        // 20
    word("A26", per(1800.0F)),     // 22
    word("A25", per(1800.0F)),     // 24
    word("A24", per(1800.0F)),     // 26
    real("A1"),                    // 28
};
constexpr std::array HourPressures = {
    real("A17", Pressure),         // 32
    real("A18", Pressure),         // 36
};
constexpr std::array HourChannels = {
    skip(12),                      // 40
    real("p3"),                    // 52
    real("A4"),                    // 56
    real("A19"),                   // 60
};

constexpr auto Hourly0 = join(HourBegin, std::array{
    skip(2),                       // 6
    real("A5"),                    // 8
    real("A7"),                    // 12
    real("_A20"),                  // 16
    real("_A21"),                  // 20
    real("A22"),                   // 24
});

constexpr auto Hourly5 = join(HourBegin, std::array{
    skip(2),                       // 6
    real("A5"),                    // 8
    real("A7"),                    // 12
    real("_A20", Hundredth),       // 16
    real("_A21", Hundredth),       // 20
    real("A22", Hundredth),        // 24
});

constexpr auto Hourly3And10 = join(HourBegin, std::array{
    word("A3", per(3600.0F)),      // 6
    real("A12"),                   // 8
    real("A14"),                   // 12
}, HourFrom16);

constexpr auto Hourly6And7And9 = join(HourBegin, std::array{
    skip(10),                      // 6
    real("_A20"),                  // 16
    real("_A21"),                  // 20
    real("A22"),                   // 24
    skip(4),                       // 28
}, HourPressures, std::array{
    real("A5"),                    // 40
    real("A7"),                    // 44
    real("A11"),                   // 48
    real("A13"),                   // 52
    real("A3"),                    // 56
    real("A2", Energy),            // 60
});

constexpr auto Hourly4 = join(Hourly3And10, HourPressures, std::array{
    real("A5"),                    // 40
    real("A7"),                    // 44
    real("A6"),                    // 48
    real("A8"),                    // 52
    real("A4"),                    // 56
});

constexpr auto Hourly11And12 = join(Hourly3And10, HourPressures, std::array{
    skip(8),                       // 40
    real("A6"),                    // 48
    real("A8"),                    // 52
    real("A4"),                    // 56
});

constexpr auto Hourly14And16 = join(HourBegin, std::array{
    skip(2),                       // 6
    real("A12"),                   // 8
    real("A14"),                   // 12
}, HourFrom16, HourPressures, HourChannels);

constexpr auto Hourly15And17 = join(HourBegin, std::array{
    skip(2),                       // 6
    real("p1"),                    // 8
    real("p2"),                    // 12
}, HourFrom16, HourPressures, HourChannels);

// ---- days

constexpr std::array DayFrom16 = {
    word("_A48", Hundredth),       // 16
    word("_A49", Hundredth),       // 18
    word("A50", Hundredth),        // 20
    word("A54", per(1800.0F)),     // 22
    word("A53", per(1800.0F)),     // 24
    word("A52", per(1800.0F)),     // 26
    real("A29"),                   // 28
};
constexpr std::array DayPressures = {
    real("A45", Pressure),         // 32
    real("A46", Pressure),         // 36
};
constexpr std::array DayChannels = {
    skip(12),                      // 40
    real("p3"),                    // 52
    skip(4),                       // 56
    real("A47"),                   // 60
};

constexpr std::array Daily0 = {
    Date,                          // 0
    real("A29", Energy),           // 4
    real("A33"),                   // 8
    real("A35"),                   // 12
    real("_A48"),                  // 16
    real("_A49"),                  // 20
    real("A50"),                   // 24
};

constexpr std::array Daily5 = {
    Date,                          // 0
    real("A29", Energy),           // 4
    skip(8),                       // 8
    real("_A48"),                  // 16
    real("_A49"),                  // 20
    real("A50"),                   // 24
};

constexpr auto Daily3And10 = join(std::array{
    Date,                          // 0
    real("A32"),                   // 4
    real("A40"),                   // 8
    real("A42"),                   // 12
}, DayFrom16);

constexpr auto Daily4And11And12 = join(Daily3And10, DayPressures, std::array{
    skip(8),                       // 40
    real("A34"),                   // 48
    real("A36"),                   // 52
});

constexpr auto Daily6And7 = join(Daily5, std::array{skip(4)}, DayPressures, std::array{
    real("A34"),                   // 40
    real("A36"),                   // 44
    real("A40"),                   // 48
    real("A42"),                   // 52
    real("A32"),                   // 56
});

constexpr auto Daily9 = join(Daily5, std::array{skip(4)}, DayPressures, std::array{
    real("A33"),                   // 40
    real("A35"),                   // 44
    real("A39"),                   // 48
    real("A41"),                   // 52
    real("A31"),                   // 56
});

constexpr auto Daily14And16 = join(Daily3And10, DayPressures, DayChannels);

constexpr auto Daily15And17 = join(std::array{
    Date,                          // 0
    real("A32"),                   // 4
    real("p1"),                    // 8
    real("p2"),                    // 12
}, DayFrom16, DayPressures, DayChannels);

// clang-format on

}  // namespace

const std::array<SA94Layout, 14> HourlyLayouts = {{
    {0, Hourly0},
    {3, Hourly3And10},
    {10, Hourly3And10},
    {7, Hourly6And7And9},
    {5, Hourly5},
    {6, Hourly6And7And9},
    {4, Hourly4},
    {11, Hourly11And12},
    {9, Hourly6And7And9},
    {12, Hourly11And12},
    {14, Hourly14And16},
    {16, Hourly14And16},
    {15, Hourly15And17},
    {17, Hourly15And17},
}};

const std::array<SA94Layout, 14> DailyLayouts = {{
    {3, Daily3And10},
    {0, Daily0},
    {4, Daily4And11And12},
    {11, Daily4And11And12},
    {9, Daily9},
    {12, Daily4And11And12},
    {10, Daily3And10},
    {7, Daily6And7},
    {5, Daily5},
    {6, Daily6And7},
    {14, Daily14And16},
    {15, Daily15And17},
    {16, Daily14And16},
    {17, Daily15And17},
}};
