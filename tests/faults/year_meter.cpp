#include "faults/year_meter.h"

namespace faults {

std::time_t twin_of(std::time_t time) {
    std::tm here{};
    ::localtime_r(&time, &here);
    for (const std::time_t step : {-YearMeter::Hour, YearMeter::Hour}) {
        const std::time_t there_time = time + step;
        std::tm there{};
        ::localtime_r(&there_time, &there);
        if (there.tm_hour == here.tm_hour && there.tm_mday == here.tm_mday) return there_time;
    }
    return time;
}

}  // namespace faults
