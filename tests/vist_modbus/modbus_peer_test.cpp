// The questions and answers of registers against a stranger: libmodbus as the slave, on a real pseudo-terminal, and as
// the master whose words on the line ours are compared with. A pseudo-terminal knows no parity, so the line has none.

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <modbus.h>

#include "desk_gateway.h"
#include "driver/line_settings.h"
#include "drivers/vist_modbus/modbus_exchange.h"
#include "drivers/vist_modbus/modbus_frame.h"
#include "support/child.h"

namespace {

constexpr int Slave = 17;
constexpr int Registers = 700;
constexpr int Speed9600 = 3;  // speed code
constexpr int NoParity = 2;   // parity code
constexpr int Patience = 5000;
constexpr std::size_t AnswerBytes = 512;

using Context = std::unique_ptr<modbus_t, void (*)(modbus_t*)>;
using Mapping = std::unique_ptr<modbus_mapping_t, void (*)(modbus_mapping_t*)>;

std::string folder_for_root() {
    std::string folder = ::testing::TempDir() + "hm-XXXXXX";
    EXPECT_NE(::mkdtemp(folder.data()), nullptr);
    return folder;
}

/// A line with our port at one end, and nobody at the other yet.
class ModbusPeer : public ::testing::Test {
  protected:
    ModbusPeer() : root(folder_for_root()), machine(root), master(::posix_openpt(O_RDWR | O_NOCTTY)) {
        std::array<char, 64> name{};
        EXPECT_TRUE(::grantpt(master) == 0 && ::unlockpt(master) == 0);
        EXPECT_EQ(::ptsname_r(master, name.data(), name.size()), 0);
        device = name.data();
        fd = open_line(device, LineOfVistModbus, Speed9600, NoParity);
        EXPECT_GT(fd, 0);
    }
    ~ModbusPeer() override {
        ::close(fd);
        ::close(master);
        ::rmdir(root.c_str());
    }

    /// All that has come to the far end, once so many bytes are there.
    std::vector<std::uint8_t> far_end(std::size_t count) const {
        std::vector<std::uint8_t> bytes;
        pollfd wait{master, POLLIN, 0};
        while (bytes.size() < count && ::poll(&wait, 1, Patience) > 0) {
            std::array<std::uint8_t, 64> piece{};
            const ssize_t got = ::read(master, piece.data(), piece.size());
            if (got <= 0) break;
            bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
        }
        return bytes;
    }

    const std::string root;
    sim::DeskGateway machine;
    const int master;
    std::string device;
    int fd = -1;
};

/// A slave at the far end: holding register n is 3n + 1, input register n is 65535 - 5n.
class ModbusServed : public ModbusPeer {
  protected:
    ModbusServed()
        : context(modbus_new_rtu(device.c_str(), 9600, 'N', 8, 1), &modbus_free),
          mapping(modbus_mapping_new(0, 0, Registers, Registers), &modbus_mapping_free) {
        for (int n = 0; n < Registers; ++n) {
            mapping->tab_registers[n] = holding(n);
            mapping->tab_input_registers[n] = input(n);
        }
        modbus_set_slave(context.get(), Slave);
        modbus_set_socket(context.get(), master);
        modbus_set_indication_timeout(context.get(), 0, 20'000);  // how soon it notices its end
        server = std::thread([this] { serve(); });
    }
    ~ModbusServed() override {
        is_over = true;
        server.join();
    }
    static std::uint16_t holding(int n) { return static_cast<std::uint16_t>(3 * n + 1); }
    static std::uint16_t input(int n) { return static_cast<std::uint16_t>(65535 - 5 * n); }

    void serve() {
        std::array<std::uint8_t, MODBUS_RTU_MAX_ADU_LENGTH> request{};
        while (!is_over) {
            const int length = modbus_receive(context.get(), request.data());
            if (length > 0) modbus_reply(context.get(), request.data(), length, mapping.get());
        }
    }

    int ask(ModbusRead read, int first, int count) {
        int length = 0;
        said = stdout_of([&] { length = read(fd, std::span(answer), Slave, first, first + count - 1, Patience, 0); });
        return length;
    }
    std::uint16_t word(int n) const {
        std::uint16_t value = 0;
        std::memcpy(&value, answer.data() + 2 + 2 * n, sizeof(value));
        return value;
    }

    const Context context;
    const Mapping mapping;
    std::atomic<bool> is_over = false;
    std::thread server;
    std::array<std::uint8_t, AnswerBytes> answer{};
    std::string said;
};

TEST_F(ModbusServed, ABlockOfAnyLengthComesAsTheSlaveHoldsIt) {
    for (const int count : {1, 76, 99, 125}) {
        for (const int first : {0, 99, 284, Registers - count}) {
            SCOPED_TRACE(std::to_string(count) + " registers from " + std::to_string(first));
            ASSERT_EQ(ask(&read_holding, first, count), 2 + 2 * count);
            EXPECT_EQ(answer[0], 3);
            EXPECT_EQ(answer[1], 2 * count);
            for (int n = 0; n < count; ++n) ASSERT_EQ(word(n), holding(first + n)) << n;

            ASSERT_EQ(ask(&read_input, first, count), 2 + 2 * count);
            EXPECT_EQ(answer[0], 4);
            EXPECT_EQ(answer[1], 2 * count);
            for (int n = 0; n < count; ++n) ASSERT_EQ(word(n), input(first + n)) << n;
        }
    }
}

TEST_F(ModbusServed, ARegisterOutsideTheMapIsAnExceptionAndNoAnswer) {
    for (const ModbusRead read : {&read_holding, &read_input}) {
        EXPECT_EQ(ask(read, Registers, 1), -1);
        EXPECT_EQ(answer[1], 2) << "the code of an illegal address, behind the function";
        EXPECT_EQ(ask(read, Registers - 75, 76), -1);
        EXPECT_EQ(ask(read, 0xFFFF, 1), -1);
        EXPECT_EQ(ask(read, Registers - 76, 76), 2 + 2 * 76) << "the next question is answered";
    }
}

TEST_F(ModbusServed, WhatLiesOnTheLineBeforeAQuestionIsNoPartOfItsAnswer) {
    const std::vector<std::uint8_t> stale = {Slave, 3, 2, 0xAA, 0xBB, 0, 0};
    ASSERT_EQ(::write(master, stale.data(), stale.size()), static_cast<ssize_t>(stale.size()));
    pollfd wait{fd, POLLIN, 0};
    ASSERT_EQ(::poll(&wait, 1, Patience), 1);
    ASSERT_EQ(ask(&read_holding, 5, 1), 4);
    EXPECT_EQ(word(0), holding(5));
}

TEST_F(ModbusServed, AQuestionForHoldingRegistersIsShownAndOneForInputRegistersIsNot) {
    // 17, function 3, register 99, 76 registers
    ask(&read_holding, 99, 76);
    EXPECT_EQ(said, "Send: 0x11 0x03 0x00 0x63 0x00 0x4C 0xB6 0xB1 \n");
    ask(&read_input, 99, 76);
    EXPECT_EQ(said, "");
}

// ---- the words of a master

constexpr std::size_t QuestionBytes = 8;

struct Question {
    int slave;
    int first;
    int count;
};

constexpr Question Questions[] = {
    {17, 0, 99},   {17, 99, 76},  {17, 284, 76},   {17, 469, 76},  {17, 654, 5},    {17, 658, 5},      {17, 663, 5},
    {17, 0, 3},    {17, 514, 4},  {17, 1542, 4},   {17, 2822, 6},  {17, 2570, 3},   {17, 3126, 1},     {17, 65535, 1},
    {1, 0x100, 1}, {247, 786, 6}, {247, 774, 125}, {100, 3124, 2}, {44, 0xABCD, 7}, {200, 0x7FFF, 76},
};

class ModbusWords : public ModbusPeer {
  protected:
    ModbusWords() : context(modbus_new_rtu(device.c_str(), 9600, 'N', 8, 1), &modbus_free) {
        EXPECT_EQ(modbus_connect(context.get()), 0);
        modbus_set_response_timeout(context.get(), 0, 1000);
    }
    ~ModbusWords() override { modbus_close(context.get()); }

    std::vector<std::uint8_t> libmodbus_sends(const Question& question, bool of_input) {
        std::array<std::uint16_t, MODBUS_MAX_READ_REGISTERS> registers{};
        modbus_set_slave(context.get(), question.slave);
        const auto read = of_input ? &modbus_read_input_registers : &modbus_read_registers;
        EXPECT_EQ(read(context.get(), question.first, question.count, registers.data()), -1) << "nobody answers";
        return far_end(QuestionBytes);
    }
    std::vector<std::uint8_t> we_send(const Question& question, bool of_input) {
        std::array<std::uint8_t, AnswerBytes> answer{};
        const auto read = of_input ? &read_input : &read_holding;
        stdout_of([&] {
            EXPECT_EQ(read(fd, answer, question.slave, question.first, question.first + question.count - 1, 1, 0), -1);
        });
        return far_end(QuestionBytes);
    }

    const Context context;
};

TEST_F(ModbusWords, OurQuestionsAreThoseOfLibmodbusByteForByte) {
    for (const Question& question : Questions) {
        for (const bool of_input : {false, true}) {
            SCOPED_TRACE(std::to_string(question.slave) + ": " + std::to_string(question.count) + " registers from " +
                         std::to_string(question.first) + (of_input ? " (input)" : " (holding)"));
            const std::vector<std::uint8_t> theirs = libmodbus_sends(question, of_input);
            ASSERT_EQ(theirs.size(), QuestionBytes);
            EXPECT_EQ(we_send(question, of_input), theirs);
            EXPECT_EQ(
                register_frame(question.slave, of_input ? ReadInput : ReadHolding, question.first, question.count),
                theirs);
        }
    }
}

TEST_F(ModbusWords, OfASlaveNumberAbove255TheLowByteGoesOut) {
    EXPECT_EQ(we_send({300, 0, 99}, false), libmodbus_sends({44, 0, 99}, false));
}

}  // namespace
