#include "driver/line_settings.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/gateway.h"
#include "support/child.h"
#include "support/scene.h"

namespace {

constexpr tcflag_t Frame = CS8 | CREAD | CLOCAL;

using Codes = std::vector<std::pair<int, tcflag_t>>;

/// Parity code 3 is none of the configuration's, and sets no parity bit in any opener but the KM5 family's.
void expect_speeds(const LineSettings& line, const Codes& codes, tcflag_t parity = 0) {
    for (const auto& [code, bits] : codes)
        EXPECT_EQ(line_termios(line, code, 3).c_cflag, Frame | bits | parity) << code;
}

void expect_parities(const LineSettings& line, const Codes& codes) {
    for (const auto& [code, bits] : codes) EXPECT_EQ(line_termios(line, 3, code).c_cflag, Frame | B9600 | bits) << code;
}

TEST(LineSettingsTest, EveryLineIsRawButForIextenAndEndsAReadBySilenceAlone) {
    const std::vector<std::pair<const LineSettings*, int>> silences{
        {&LineOfVist, 5}, {&LineOfVistModbus, 30}, {&LineOfKm5, 6}, {&LineOfSa94, 9}, {&LineOfScheduler, 6}};
    for (const auto& [line, vtime] : silences) {
        const termios set = line_termios(*line, 3, 2);
        EXPECT_EQ(set.c_iflag, 0U);
        EXPECT_EQ(set.c_oflag, 0U);
        EXPECT_EQ(set.c_lflag, static_cast<tcflag_t>(IEXTEN));
        for (int i = 0; i < NCCS; ++i) EXPECT_EQ(set.c_cc[i], i == VTIME ? vtime : 0) << i;
    }
}

const Codes VistSpeeds{{-1, B4800}, {0, B4800}, {1, B2400}, {2, B4800}, {3, B9600},
                       {4, B19200}, {5, B4800}, {6, B4800}, {7, B4800}, {8, B4800}};

TEST(LineSettingsTest, SpeedsOfVistModbusAndSa94AreThoseOfVist) {
    for (const LineSettings* line : {&LineOfVist, &LineOfVistModbus, &LineOfSa94}) expect_speeds(*line, VistSpeeds);
}

TEST(LineSettingsTest, SpeedsOfKm5) {
    expect_speeds(LineOfKm5,
                  {{-1, B9600},
                   {0, B9600},
                   {1, B2400},
                   {2, B4800},
                   {3, B9600},
                   {4, B19200},
                   {5, B38400},
                   {6, B57600},
                   {7, B115200},
                   {8, B9600}},
                  PARODD);
}

TEST(LineSettingsTest, SpeedsOfTheSchedulerHaveNoBitsForAnUnknownCode) {
    expect_speeds(LineOfScheduler, {{-1, 0},
                                    {0, 0},
                                    {1, B2400},
                                    {2, B4800},
                                    {3, B9600},
                                    {4, B19200},
                                    {5, B38400},
                                    {6, B57600},
                                    {7, B115200},
                                    {8, 0}});
}

TEST(LineSettingsTest, ParitiesOfVistAndVistModbus) {
    for (const LineSettings* line : {&LineOfVist, &LineOfVistModbus}) {
        expect_parities(*line, {{1, PARENB}, {2, 0}, {0, 0}, {-1, 0}, {3, 0}});
    }
}

TEST(LineSettingsTest, ParityCodeOfKm5IsIgnored) {
    expect_parities(LineOfKm5, {{1, PARODD}, {2, PARODD}, {0, PARODD}, {-1, PARODD}});
}

TEST(LineSettingsTest, ParitiesOfSa94) {
    expect_parities(LineOfSa94, {{1, PARENB}, {2, PARENB | PARODD}, {0, 0}, {-1, 0}, {3, 0}});
}

TEST(LineSettingsTest, ParitiesOfTheScheduler) {
    expect_parities(LineOfScheduler, {{1, PARENB}, {2, PARODD}, {0, 0}, {-1, 0}, {3, 0}});
}

// ---- opening

TEST(OpeningALine, SetsThePortOnce) {
    Scene scene;
    scene.gateway.add_device("/dev/ttyS1");
    EXPECT_GT(open_line("/dev/ttyS1", LineOfVist, 4, 1), 0);
    EXPECT_EQ(scene.gateway.times_line_set("/dev/ttyS1"), 1);
    EXPECT_EQ(scene.gateway.line_of("/dev/ttyS1").c_cflag, Frame | B19200 | PARENB);
    EXPECT_EQ(scene.gateway.line_of("/dev/ttyS1").c_cc[VTIME], 5);
}

TEST(OpeningALine, DropsWhatWasReceivedBefore) {
    Scene scene;
    scene.gateway.add_device("/dev/ttyS1");
    scene.gateway.put_noise("/dev/ttyS1", {1, 2, 3});
    const int fd = open_line("/dev/ttyS1", LineOfKm5, 3, 2);
    std::uint8_t byte = 0;
    EXPECT_EQ(scene.gateway.read_port(fd, {&byte, 1}), 0);
}

TEST(OpeningALine, PortThatCannotBeOpenedIsADescriptorBelowOne) {
    Scene scene;
    for (const std::string& name : {std::string("/dev/none"), std::string(), std::string(500, 'd')}) {
        EXPECT_LT(open_line(name, LineOfKm5, 3, 2), 1) << name;
    }
}

// ---- the system's own port, at a pseudo-terminal

class SystemPort : public ::testing::Test {
  protected:
    void SetUp() override {
        master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) GTEST_SKIP() << "no pseudo-terminals here";
        name = ::ptsname(master);
    }
    void TearDown() override { ::close(master); }

    int master = -1;
    std::string name;
};

TEST_F(SystemPort, IsSetAsTold) {
    const int fd = open_line(name, LineOfKm5, 4, 1);
    ASSERT_GT(fd, 0);
    termios set{};
    ASSERT_EQ(::tcgetattr(fd, &set), 0);
    EXPECT_EQ(set.c_iflag, 0U);
    EXPECT_EQ(set.c_oflag, 0U);
    EXPECT_EQ(set.c_lflag, static_cast<tcflag_t>(IEXTEN));
    EXPECT_EQ(set.c_cflag, Frame | B19200 | PARODD);
    EXPECT_EQ(set.c_cc[VTIME], 6);
    EXPECT_EQ(set.c_cc[VMIN], 0);
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    ::close(fd);
}

TEST_F(SystemPort, CarriesBytesBothWays) {
    const int fd = open_line(name, LineOfKm5, 3, 2);
    constexpr std::uint8_t Ask[] = {0x00, 0x11, 0x0A, 0xFF};
    EXPECT_EQ(gateway().write_port(fd, Ask), 4);
    std::vector<std::uint8_t> heard(10);
    EXPECT_EQ(::read(master, heard.data(), heard.size()), 4);
    EXPECT_EQ(::write(master, "\x13\r\x03", 3), 3);
    std::vector<std::uint8_t> answer(3);
    for (std::uint8_t& byte : answer) EXPECT_EQ(gateway().read_port(fd, {&byte, 1}), 1);
    EXPECT_EQ(answer, (std::vector<std::uint8_t>{0x13, 0x0D, 0x03}));
    ::close(fd);
}

TEST_F(SystemPort, ThatIsMissingDoesNotOpen) {
    EXPECT_LT(open_line("/dev/no such port", LineOfKm5, 3, 2), 1);
    EXPECT_LT(open_line("", LineOfKm5, 3, 2), 1);
}

TEST_F(SystemPort, ThatIsNoTerminalDoesNotOpenAndStaysAsItIs) {
    Scene scene;
    set_gateway(nullptr);
    const std::string folder = scene.real_path("/tmp/");
    scene.write("/tmp/file", "not a line");
    ::mkfifo((folder + "fifo").c_str(), 0666);
    for (const std::string& path : {folder + "file", folder + "fifo", folder, std::string("/dev/null")}) {
        EXPECT_EQ(gateway().open_port(path.c_str()), -1) << path;
        EXPECT_LT(open_line(path, LineOfKm5, 3, 2), 1) << path;
    }
    EXPECT_EQ(scene.file("/tmp/file"), "not a line");
}

TEST_F(SystemPort, DoesNotBecomeTheTerminalOfTheProcess) {
    const ChildEnd end = in_child([this] {
        ::setsid();
        const int fd = gateway().open_port(name.c_str());
        return (fd > 0 ? 0 : 1) + (::open("/dev/tty", O_RDWR) < 0 ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0);
}

TEST_F(SystemPort, IsFlushedBothWaysAndGoesOnSending) {
    const int fd = open_line(name, LineOfVistModbus, 3, 2);
    int on = 1;
    if (::ioctl(master, TIOCPKT, &on) != 0) GTEST_SKIP() << "no packet mode here";
    EXPECT_EQ(::write(master, "late", 4), 4);
    ::tcflow(fd, TCOOFF);
    std::uint8_t events = 0;
    EXPECT_EQ(::read(master, &events, 1), 1);
    EXPECT_EQ(events, TIOCPKT_STOP);
    gateway().flush_port(fd);
    EXPECT_EQ(::read(master, &events, 1), 1);
    EXPECT_EQ(events, TIOCPKT_FLUSHREAD | TIOCPKT_FLUSHWRITE | TIOCPKT_START);
    int waiting = -1;
    EXPECT_EQ(::ioctl(fd, FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 0) << "what came too late is gone";
    ::close(fd);
}

}  // namespace
