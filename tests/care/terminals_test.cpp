#include "care/terminals.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <gtest/gtest.h>

#include "support/scene.h"

namespace {

class ConfiguredDevices : public testing::Test {
  protected:
    void meter(const std::string& uuid, const std::string& device) {
        sim::MeterSettings settings;
        settings.port_name = device;
        scene.service.set_meter(uuid, settings);
    }

    Scene scene;
};

TEST_F(ConfiguredDevices, AreThatOfTheFirstMeterOnAPortOfOneKind) {
    meter("a", "/dev/a");
    meter("b", "/dev/b");
    EXPECT_EQ(configured_devices({"KM5", "-r", "a", "b"}), Devices{"/dev/a"});
    EXPECT_EQ(configured_devices({"any", "-j", "a", "b"}), (Devices{"/dev/a", "/dev/b"}));
    EXPECT_EQ(configured_devices({"KM5", "-r", "stranger"}), Devices());
}

TEST_F(ConfiguredDevices, AreNoneInAnAnswerOfAnotherShape) {
    for (const char* result : {"7", "[]", "null", R"({"port_params":[]})", R"({"port_params":{"name":[1]}})"}) {
        scene.service.set_result("a", result);
        EXPECT_EQ(configured_devices({"KM5", "-r", "a"}), Devices()) << result;
    }
    scene.service.answer_with("[]");
    EXPECT_EQ(configured_devices({"KM5", "-r", "a"}), Devices());
}

TEST_F(ConfiguredDevices, AreNotKnownWithoutAnAnswerInJson) {
    scene.service.answer_with("Good morning!");
    EXPECT_EQ(configured_devices({"KM5", "-r", "a"}), std::nullopt);
    scene.service.answer_with(std::string(100000, '['));
    EXPECT_EQ(configured_devices({"KM5", "-r", "a"}), std::nullopt);
    scene.service.hang_up();
    EXPECT_EQ(configured_devices({"KM5", "-r", "a"}), std::nullopt);
}

TEST_F(ConfiguredDevices, AreWaitedForAsLongAsTold) {
    scene.service.hang_up();
    const std::int64_t start = scene.gateway.steady_microseconds();
    EXPECT_EQ(wait_for_devices({"KM5", "-r", "a"}, 60), std::nullopt);
    EXPECT_NEAR(static_cast<double>(scene.gateway.steady_microseconds() - start), 60e6, 1e6);
}

/// A process that holds the device, or none, above its standard streams.
class Holder {
  public:
    explicit Holder(const std::string& device = "") {
        int ready[2];
        if (::pipe(ready) != 0) return;
        pid = ::fork();
        if (pid == 0) {
            for (int fd = 3; fd < 100; ++fd) {
                if (fd != ready[1]) ::close(fd);
            }
            if (!device.empty()) ::open(device.c_str(), O_RDWR | O_NOCTTY);
            if (::write(ready[1], "!", 1) == 1) ::pause();
            ::_exit(1);
        }
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder() {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }

    pid_t pid = 0;
};

struct Pty {
    Pty() { EXPECT_EQ(::openpty(&master, &slave, name, nullptr, nullptr), 0); }
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;
    ~Pty() { unplug(); }

    void unplug() {
        for (int* fd : {&master, &slave}) {
            if (*fd >= 0) ::close(*fd);
            *fd = -1;
        }
    }

    int master = -1;
    int slave = -1;
    char name[64] = "";
};

TEST(PortLook, IsFineWhileTheDeviceIsTheConfiguredOne) {
    const Pty pty;
    const Holder holder(pty.name);
    EXPECT_EQ(look_at_port(holder.pid, {pty.name}), PortLook::Fine);
    EXPECT_EQ(look_at_port(holder.pid, {"/dev/no-such", pty.name}), PortLook::Fine);
    EXPECT_EQ(look_at_port(holder.pid, {"/dev/no-such"}), PortLook::Fine);
    EXPECT_EQ(look_at_port(holder.pid, {}), PortLook::Fine);
}

TEST(PortLook, IsGoneWithTheDeviceAndWhenTheNameLeadsElsewhere) {
    Pty pty;
    const Pty other;
    const Holder holder(pty.name);
    EXPECT_EQ(look_at_port(holder.pid, {other.name}), PortLook::Gone);
    pty.unplug();
    EXPECT_EQ(look_at_port(holder.pid, {}), PortLook::Gone);
    EXPECT_EQ(look_at_port(holder.pid, {other.name}), PortLook::Gone);
}

TEST(PortLook, IsClosedWithoutADeviceAndFineWithoutAProcess) {
    pid_t pid = 0;
    {
        const Holder holder;
        pid = holder.pid;
        EXPECT_EQ(look_at_port(pid, {"/dev/no-such"}), PortLook::Closed);
    }
    EXPECT_EQ(look_at_port(pid, {"/dev/no-such"}), PortLook::Fine);
}

TEST(Reader, IsAProcessOfThatNameWithOneOfTheMeters) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execl("/bin/sh", "/x/reading-test", "-c", "kill -STOP $$", "u1", "u2", nullptr);
        ::_exit(1);
    }
    ::waitpid(pid, nullptr, WUNTRACED);
    EXPECT_EQ(reader_of({"other", "u2"}, "reading-test"), pid);
    EXPECT_EQ(reader_of({"u3"}, "reading-test"), 0);
    EXPECT_EQ(reader_of({"u1"}, "x"), 0);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    EXPECT_EQ(reader_of({"u1"}, "reading-test"), 0);
}

TEST(StateOfDevices, TellsOneFromAnother) {
    const Pty one;
    const Pty two;
    EXPECT_EQ(state_of({}), "");
    EXPECT_EQ(state_of({"/dev/no-such"}), "");
    EXPECT_NE(state_of({one.name}), "");
    EXPECT_EQ(state_of({one.name}), state_of({"/dev/no-such", one.name}));
    EXPECT_NE(state_of({one.name}), state_of({two.name}));
}

}  // namespace
