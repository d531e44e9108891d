#include "faults/year_family.h"

#include <cstdio>
#include <stdexcept>

namespace faults {

const std::vector<std::string>& family_names() {
    static const std::vector<std::string> names = {"KM5", "VIST", "VISTmodbus", "SA94"};
    return names;
}

std::unique_ptr<YearFamily> make_family(const std::string& name) {
    if (name == "KM5") return make_km5_year();
    if (name == "VIST") return make_vist_year();
    if (name == "VISTmodbus") return make_modbus_year();
    if (name == "SA94") return make_sa94_year();
    throw std::invalid_argument("no such family: " + name);
}

std::string year_line(std::time_t time, int quality, double value) {
    char text[96];
    std::snprintf(text, sizeof(text), "%ld,%d,%f", static_cast<long>(time), quality, value);
    return text;
}

std::time_t twin_of(std::time_t time) {
    std::tm here{};
    ::localtime_r(&time, &here);
    for (const std::time_t step : {-YearFamily::Hour, YearFamily::Hour}) {
        const std::time_t there_time = time + step;
        std::tm there{};
        ::localtime_r(&there_time, &there);
        if (there.tm_hour == here.tm_hour && there.tm_mday == here.tm_mday) return there_time;
    }
    return time;
}

}  // namespace faults
