#pragma once
// How each kind of driver sets the serial line, from the speed and parity codes of the configuration.

#include <termios.h>

#include <span>
#include <string>

/// One speed code and its CBAUD bits.
struct SpeedRow {
    int code;
    speed_t bits;
};

/// The line of one opener. Always 8 data bits, receiver on, no modem control, raw but for IEXTEN, VMIN 0.
struct LineSettings {
    std::span<const SpeedRow> speeds;
    speed_t other_speed;    ///< for codes that `speeds` does not hold
    tcflag_t parity_1;      ///< parity bits of c_cflag for parity code 1
    tcflag_t parity_2;      ///< for code 2
    tcflag_t other_parity;  ///< for all others
    cc_t vtime;             ///< silence that ends an answer, tenths of a second
};

extern const LineSettings LineOfVist;
extern const LineSettings LineOfVistModbus;
extern const LineSettings LineOfKm5;
extern const LineSettings LineOfSa94;
extern const LineSettings LineOfScheduler;

/// The termios of a line for a speed code and a parity code.
termios line_termios(const LineSettings& line, int speed_code, int parity_code);

/// Opens the port and sets its line. The descriptor; below 1 when the port cannot be opened.
int open_line(const std::string& port_name, const LineSettings& line, int speed_code, int parity_code);
