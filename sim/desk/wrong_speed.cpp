#include "wrong_speed.h"

namespace sim {

namespace {

constexpr unsigned BitsPerByte = 10;  // with start and stop bit
constexpr unsigned DataBits = 8;

/// A line as a row of bits, lowest first, idle (high) behind the last byte.
class Wire {
  public:
    explicit Wire(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint64_t size() const { return bytes_.size() * BitsPerByte; }
    bool is_high(std::uint64_t bit) const {
        if (bit >= size()) return true;
        const std::uint64_t place = bit % BitsPerByte;
        if (place == 0) return false;
        return place > DataBits || (bytes_[bit / BitsPerByte] >> (place - 1) & 1U) != 0;
    }
    /// The first bit from `bit` on that is low and has a high one in front.
    std::uint64_t fall(std::uint64_t bit) const {
        while (bit < size() && !is_high(bit)) ++bit;
        while (bit < size() && is_high(bit)) ++bit;
        return bit;
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace

ByteVector misheard(std::span<const std::uint8_t> bytes, unsigned sent, unsigned heard) {
    // In units of which a bit lasts 2 * heard for the sender and 2 * sent for the receiver.
    const Wire wire(bytes);
    const std::uint64_t bit = 2ULL * heard;
    const std::uint64_t half = sent;
    ByteVector result;
    for (std::uint64_t start = 0; start < wire.size();) {
        const std::uint64_t begin = start * bit;
        if (wire.is_high((begin + half) / bit)) {  // too short for a start bit
            start = wire.fall(start);
            continue;
        }
        unsigned byte = 0;
        for (unsigned k = 0; k < DataBits; ++k) {
            if (wire.is_high((begin + (2 * k + 3) * half) / bit)) byte |= 1U << k;
        }
        result.push_back(static_cast<std::uint8_t>(byte));
        start = wire.fall((begin + 19 * half) / bit);
    }
    return result;
}

}  // namespace sim
