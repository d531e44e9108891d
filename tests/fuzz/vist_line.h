#pragma once
// What the two targets of the VIST meter share: a line that answers what the input says, and a driver on it.
//
// An answer begins with a byte h:
//     0x00 to 0x7F    a text frame around h bytes of body, which follow, from the network number and the virtual device
//                     that were asked
//     0x80 to 0xBF    a packet: its type, the count of its body and the body follow. The lowest bits of h choose what
//     is
//                     right about it: 1 the inner sum, 2 the size, 4 the outer sum; 8 takes the type that the request
//                     calls for in the place of the one in the input
//     0xC0 to 0xDF    any bytes: a byte for the count, then they follow
//     0xE0 to 0xFF    silence, for this request and the next h - 0xE0
// When the input is used up, or the meter has been asked often enough, the run ends in the middle of what it does then.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "drivers/vist/hcd_vist.h"
#include "fuzz_ground.h"

struct VistRunEnded {};

class VistScriptedLine final : public FuzzGateway {
  public:
    VistScriptedLine(const std::string& root, FuzzInput& input, int most_exchanges)
        : FuzzGateway(root), input_(input), exchanges_left_(most_exchanges) {}

    /// As a meter of that version with three virtual devices that does not tell who it is; 0: as the input says.
    void pose_as(int version) { posed_as_ = version; }
    ssize_t write_port(int fd, std::span<const std::uint8_t> request) override;
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;

  private:
    std::vector<std::uint8_t> next_answer(const std::string& command);
    std::vector<std::uint8_t> posed(const std::string& command) const;
    std::vector<std::uint8_t> frame(const std::string& body) const;
    std::vector<std::uint8_t> packet(std::uint8_t head, const std::string& command);

    FuzzInput& input_;
    std::vector<std::uint8_t> answer_;
    std::size_t read_ = 0;
    int silent_ = 0;
    int exchanges_left_;
    int network_ = 1;
    int device_ = 0;
    int posed_as_ = 0;
};

/// The type that a packet must have which answers this command; 0 for a command that asks for none.
std::uint8_t vist_type_for(const std::string& command);

/// The settings of the driver under test: network number 1, on the scripted line. It knows of three virtual devices and
/// of that version, if it is not 0.
void prepare_vist(HCD_VIST& driver, VistScriptedLine& line, int version);

/// Whatever a meter says leaves the driver's archive files with whole lines.
void check_vist_files();
