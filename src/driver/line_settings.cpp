#include "driver/line_settings.h"

#include <algorithm>

#include "core/gateway.h"

namespace {

constexpr SpeedRow ThreeSpeeds[] = {
    {1, B2400},
    {3, B9600},
    {4, B19200},
};

constexpr SpeedRow Km5Speeds[] = {
    {1, B2400}, {2, B4800}, {4, B19200}, {5, B38400}, {6, B57600}, {7, B115200},
};

constexpr SpeedRow SchedulerSpeeds[] = {
    {1, B2400}, {2, B4800}, {3, B9600}, {4, B19200}, {5, B38400}, {6, B57600}, {7, B115200},
};

constexpr speed_t NoSpeedBits = 0;

}  // namespace

// PARODD without PARENB does nothing on the line: such rows mean no parity bit.
const LineSettings LineOfVist = {ThreeSpeeds, B4800, PARENB, 0, 0, 5};
const LineSettings LineOfVistModbus = {ThreeSpeeds, B4800, PARENB, 0, 0, 30};
const LineSettings LineOfKm5 = {Km5Speeds, B9600, PARODD, PARODD, PARODD, 6};
const LineSettings LineOfSa94 = {ThreeSpeeds, B4800, PARENB, PARENB | PARODD, 0, 9};
const LineSettings LineOfScheduler = {SchedulerSpeeds, NoSpeedBits, PARENB, PARODD, 0, 6};

termios line_termios(const LineSettings& line, int speed_code, int parity_code) {
    const auto row = std::find_if(line.speeds.begin(), line.speeds.end(),
                                  [speed_code](const SpeedRow& speed) { return speed.code == speed_code; });
    termios settings{};
    settings.c_lflag = IEXTEN;
    settings.c_cflag = CS8 | CREAD | CLOCAL;
    settings.c_cflag |= row != line.speeds.end() ? row->bits : line.other_speed;
    settings.c_cflag |= parity_code == 1 ? line.parity_1 : parity_code == 2 ? line.parity_2 : line.other_parity;
    settings.c_cc[VTIME] = line.vtime;
    return settings;
}

int open_line(const std::string& port_name, const LineSettings& line, int speed_code, int parity_code) {
    const int fd = gateway().open_port(port_name.c_str());
    if (fd > 0) gateway().set_line(fd, line_termios(line, speed_code, parity_code));
    return fd;
}
