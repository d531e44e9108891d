#pragma once
// One request to an SA-94 meter with its reply. A request is one to three bytes, a reply is raw meter memory; there is
// no frame and no check sum in either direction, and what a reply means lies in the request that asked for it.

#include <array>
#include <cstddef>
#include <cstdint>

#include "core/bytes.h"

struct SA94Request {
    static constexpr std::size_t ResponseBytes = 512;

    /// `address`: number of the meter on the bus, 20 bits of it on the wire.
    explicit SA94Request(std::int32_t address);

    /// Zeroes `command` and `response`. Nothing else: an object that has asked for a disconnect expects no reply ever
    /// after.
    void reset();

    /// Opens the conversation; the reply's first byte is the meter's status.
    void setConnect();
    /// One block of memory, 128 bytes; block numbers up to 127.
    void setReadBlock(std::uint32_t segment, std::uint32_t block);
    /// One block of memory of a meter with long segments; block numbers up to 511.
    void setReadBlockExtended(std::uint32_t segment, std::uint32_t block);
    void setReadFirmware();
    void setReadTubeSettings();
    /// One current parameter: a float in the reply's bytes 0 to 3, or a BCD date or time in bytes 1 to 3.
    void setReadParameter(std::uint8_t code);
    /// Ends the conversation; the meter does not answer.
    void setDisconnect();

    Bytes sent() const { return Bytes(command).first(send_length); }
    Bytes received() const { return Bytes(response).first(recv_length); }

    std::array<std::uint8_t, 3> command{};
    std::array<std::uint8_t, ResponseBytes> response{};  ///< bytes that the meter did not send are 0
    std::uint32_t send_length = 0;
    std::uint32_t recv_length = 0;
    std::int32_t address;
    bool must_answer = true;  ///< an empty reply is a failure
};
