#include "sim_storage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "support/scene.h"

namespace {

using sim::Unsynced;

class SimPower : public ::testing::Test {
  protected:
    static constexpr const char* Name = "/mnt/storage/u/1/tc_archives/Q";

    /// A line more in a file, as a daemon would write it; durable when the power lasts.
    void append(const std::string& line, bool durable) {
        const int fd = open(Name, O_WRONLY | O_CREAT | O_APPEND);
        put(fd, line);
        if (durable) {
            EXPECT_EQ(scene.gateway.make_durable(fd), 0);
        }
        ::close(fd);
    }

    void rewrite(const std::string& text) {
        const int fd = open(Name, O_WRONLY | O_CREAT | O_TRUNC);
        put(fd, text);
        ::close(fd);
    }

    int open(const std::string& path, int flags) { return ::open(scene.real_path(path).c_str(), flags, 0644); }

    static void put(int fd, const std::string& text) {
        EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void lose_power(Unsynced unsynced) {
        scene.gateway.cut_power_at(1, unsynced);
        const int fd = open("/mnt/storage/other", O_WRONLY | O_CREAT);
        EXPECT_THROW(scene.gateway.make_durable(fd), sim::PowerCut);
        ::close(fd);
    }

    void SetUp() override { scene.make_tree("u"); }

    Scene scene;
};

TEST_F(SimPower, FailsAtTheWriteThatWasTold) {
    scene.gateway.cut_power_at(3, Unsynced::Dropped);
    append("1\n", true);
    append("2\n", true);
    EXPECT_THROW(append("3\n", true), sim::PowerCut);
    EXPECT_EQ(scene.file(Name), "1\n2\n");
    EXPECT_EQ(scene.gateway.durable_writes(), 3);
}

TEST_F(SimPower, ComesBackAndTheMachineWorksOn) {
    scene.gateway.add_device("/dev/ttyS1");
    const int port = scene.gateway.open_port("/dev/ttyS1");
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.gateway.drain_port(port), -1);
    append("1\n", true);
    EXPECT_EQ(scene.file(Name), "1\n");
    EXPECT_NE(scene.gateway.open_port("/dev/ttyS1"), port);
}

TEST_F(SimPower, DropsWhatWasNotMadeDurable) {
    append("1\n", true);
    append("2\n", false);
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.file(Name), "1\n");
}

TEST_F(SimPower, KeepsItAllWhenTheKernelWasQuick) {
    append("1\n", true);
    append("2\n", false);
    lose_power(Unsynced::Kept);
    EXPECT_EQ(scene.file(Name), "1\n2\n");
}

TEST_F(SimPower, LeavesZerosWhereOnlyTheLengthWasWritten) {
    append("1\n", true);
    append("2\n", false);
    lose_power(Unsynced::Zeroed);
    EXPECT_EQ(scene.file(Name), std::string("1\n\0\0", 4));
}

TEST_F(SimPower, EmptiesAFileThatNeverWasDurable) {
    append("1\n", false);
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.file(Name), "");
}

TEST_F(SimPower, TakesBackATruncationThatWasNotMadeDurable) {
    append("1\n", true);
    rewrite("3\n");
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.file(Name), "1\n");
}

TEST_F(SimPower, ZeroesAFileThatWasRewritten) {
    append("1\n", true);
    rewrite("345\n");
    lose_power(Unsynced::Zeroed);
    EXPECT_EQ(scene.file(Name), std::string(4, '\0'));
}

TEST_F(SimPower, LeavesADurableTruncationAlone) {
    append("1\n2\n", true);
    rewrite("");
    append("3\n", true);
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.file(Name), "3\n");
}

TEST_F(SimPower, SparesWhatTheTestItselfPrepared) {
    scene.write(Name, "1\n");
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.file(Name), "1\n");
}

TEST_F(SimPower, DoesNotTouchWhatIsNotOnStorage) {
    scene.write("/tmp/u/1/tc_items/Connected", "1\n");
    lose_power(Unsynced::Dropped);
    EXPECT_EQ(scene.item("u", 1, "Connected"), "1\n");
}

TEST_F(SimPower, TakesTheLocksAndTheBuffersOfTheDeadProcessWithIt) {
    const int dead = open(Name, O_WRONLY | O_CREAT | O_APPEND);
    ASSERT_EQ(::flock(dead, LOCK_EX), 0);
    lose_power(Unsynced::Kept);
    put(dead, "too late\n");
    const int next = open(Name, O_WRONLY | O_APPEND);
    EXPECT_EQ(::flock(next, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(scene.file(Name), "");
    ::close(next);
    ::close(dead);
}

TEST_F(SimPower, StaysWhileADurableWriteMerelyFails) {
    scene.gateway.fail_durable(EIO);
    const int fd = open(Name, O_WRONLY | O_CREAT);
    EXPECT_EQ(scene.gateway.make_durable(fd), -1);
    EXPECT_EQ(errno, EIO);
    scene.gateway.fail_durable(0);
    EXPECT_EQ(scene.gateway.make_durable(fd), 0);
    ::close(fd);
    EXPECT_EQ(scene.gateway.make_durable(fd), -1) << "a closed descriptor";
}

}  // namespace
