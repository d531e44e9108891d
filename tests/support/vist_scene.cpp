#include "support/vist_scene.h"

#include <algorithm>
#include <iterator>

namespace vist_frames {

sim::ByteVector raw(const std::string& bytes) {
    return {bytes.begin(), bytes.end()};
}

sim::ByteVector text(const std::string& body, int device) {
    return raw("HL0[1:" + std::to_string(device) + "]{" + body + "}>");
}

sim::ByteVector packet(int type, const sim::ByteVector& body) {
    unsigned sum = static_cast<unsigned>(type);
    for (const std::uint8_t byte : body) sum += byte;
    sim::ByteVector bytes = {'H',
                             'P',
                             'T',
                             static_cast<std::uint8_t>(body.size() + 2),
                             static_cast<std::uint8_t>(sum),
                             static_cast<std::uint8_t>(type)};
    std::copy(body.begin(), body.end(), std::back_inserter(bytes));
    return bytes;
}

}  // namespace vist_frames

VistPuppet::VistPuppet() {
    put_body("CALL 1", "NAME=TS");
    for (int device = 0; device < 8; ++device) put_body("VDN " + std::to_string(device), "NAME=TS", device);
    put_body(".", "OK");
}

void VistPuppet::put_body(const std::string& command, const std::string& body, int device) {
    put(command, vist_frames::text(body, device));
}

void VistPuppet::put_packet(const std::string& command, int type, const sim::ByteVector& body) {
    put(command, vist_frames::packet(type, body));
}

VistPuppet& VistPuppet::say(const sim::ByteVector& bytes, int times) {
    for (int i = 0; i < times; ++i) first_.push_back(bytes);
    return *this;
}

VistPuppet& VistPuppet::say(const std::string& text, int times) {
    return say(vist_frames::raw(text), times);
}

sim::Answer VistPuppet::hear(std::span<const std::uint8_t> request, std::time_t /*now*/) {
    heard.emplace_back(request.begin(), request.end());
    sim::ByteVector bytes;
    if (!first_.empty()) {
        bytes = first_.front();
        first_.pop_front();
    } else {
        const std::string command = heard.back().substr(0, heard.back().find('\r'));
        if (auto once = once_.extract(command)) {
            bytes = once.mapped();
        } else if (const auto found = answers_.find(command); found != answers_.end()) {
            bytes = found->second;
        }
    }
    if (bytes.empty()) return {};
    return {{.delay_seconds = 0.02, .bytes = std::move(bytes)}};
}

VistLinkStand::VistLinkStand() {
    meter.put_body("VER", "VER=102");
    meter.put_body("VDC", "VDC=2");
    meter.put_packet("/MON G", 10, {1, 2, 3});
    const VISTLine line{.exchange = [this](Bytes command, ExchangeAnswer& answer,
                                           int most) { driver->send_receive_locked(command, answer, most); },
                        .set_busy = [this](int flag) { busy_flags.push_back(flag); },
                        .set_connected = [](bool flag) { setConnected(flag, Uuid); }};
    setConnected(false, Uuid);
    quietly([&] { link = std::make_unique<VISTFunctions>(driver.get(), link_log.get(), line); });
}

bool VistLinkStand::ask(std::span<const VISTRequest> rows, int rec_count) {
    parameters.rec_count = rec_count;
    reply = link->do_request(rows, parameters);
    return reply.done;
}

VistDescribedStand::VistDescribedStand() {
    put_version(102);
    put_devices(1);
    put_specials("V1.02", "TYPE", "10001");
    put_byte_order(false);
    record[0] = 'T';
    put_record();
    meter.put_packet("/SYS CFG 1", 33, config);
}

void VistDescribedStand::put_version(int version) {
    meter.put_body("VER", "VER=" + std::to_string(version));
}

void VistDescribedStand::put_specials(const std::string& firmware, const std::string& model,
                                      const std::string& serial) {
    const std::string zero(1, '\0');
    meter.put_packet("/SYS SPC 0", 30, vist_frames::raw(firmware + zero + model + zero + serial + zero));
}

void VistDescribedStand::put_byte_order(bool little, bool with_clock) {
    sim::ByteVector body = {10, 4, 58, 2, 3, 24};
    if (!with_clock) body.clear();
    body.push_back(little ? 0x80 : 0x00);
    body.insert(body.end(), 4, 0);
    meter.put_packet("/MON G", 10, body);
}
