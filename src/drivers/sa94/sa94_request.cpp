#include "drivers/sa94/sa94_request.h"

namespace {

constexpr std::uint8_t low_byte(std::uint32_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

}  // namespace

SA94Request::SA94Request(std::int32_t number) : address(number) {
    reset();
}

void SA94Request::reset() {
    command.fill(0);
    response.fill(0);
}

void SA94Request::setConnect() {
    reset();
    send_length = 3;
    command = {static_cast<std::uint8_t>(0xC0 | ((address >> 14) & 0x3F)),
               static_cast<std::uint8_t>((address >> 7) & 0x7F), static_cast<std::uint8_t>(address & 0x7F)};
}

void SA94Request::setReadBlock(std::uint32_t segment, std::uint32_t block) {
    reset();
    send_length = 2;
    command = {low_byte(0xA0 | segment), low_byte(block & 0x7F)};
}

void SA94Request::setReadBlockExtended(std::uint32_t segment, std::uint32_t block) {
    reset();
    send_length = 3;
    command = {0xB7, low_byte(0x40 | ((segment << 3) & 0xFF) | ((block >> 6) & 7)), low_byte(block & 0x3F)};
}

void SA94Request::setReadFirmware() {
    setReadBlock(0, 2);
}

void SA94Request::setReadTubeSettings() {
    setReadBlock(0, 0);
}

void SA94Request::setReadParameter(std::uint8_t code) {
    reset();
    send_length = 1;
    command = {low_byte(0x80U | code)};
}

void SA94Request::setDisconnect() {
    reset();
    send_length = 1;
    command = {0x01};
    must_answer = false;
}
