#include "faults/installation.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "config/config_client.h"
#include "core/entry/startup.h"
#include "core/gateway.h"
#include "drivers/km5/km5_base.h"
#include "drivers/sa94/sa94.h"
#include "drivers/vist/vist_base.h"
#include "drivers/vist_modbus/vistmodbus_base.h"
#include "faults/fault_plan.h"

namespace faults {

namespace {

constexpr std::uint64_t OtherThanThePlan =
    0x6D65746572;  // plan and meters of a seed have nothing to do with each other
constexpr unsigned IterationPause = 5;
constexpr int OneLineIn = 3;  // has two meters

template <typename Base, typename... Flags>
void live_with(const Installation::Uuids& uuids, Flags... flags) {
    Base base(uuids, flags...);
    read_driver_config(base);
    base.open_tty();
    base.run_main();
}

int meters_of(Dice& dice) {
    return dice.one_in(OneLineIn) ? 2 : 1;
}

Installation draw_km5(Dice& dice) {
    Installation result;
    const bool att = dice.one_in(4);
    const int count = meters_of(dice);
    for (int number = 0; number < count; ++number) result.places.push_back({make_km5_meter(number, att, dice)});
    const bool km56i = result.places[0].meter->settings().manufacturer == "km-5-6i";
    result.live = [att, km56i](const Installation::Uuids& uuids) { live_with<KM5_base>(uuids, km56i, att); };
    return result;
}

Installation draw_vist(Dice& dice) {
    Installation result;
    const int count = meters_of(dice);
    for (int number = 0; number < count; ++number) result.places.push_back({make_vist_meter(number, count == 1, dice)});
    result.live = [](const Installation::Uuids& uuids) { live_with<VIST_base>(uuids); };
    return result;
}

Installation draw_modbus(Dice& dice) {
    Installation result;
    const int count = meters_of(dice);
    for (int number = 0; number < count; ++number) result.places.push_back({make_modbus_meter(number, dice)});
    result.live = [](const Installation::Uuids& uuids) { live_with<VISTmodbus_base>(uuids); };
    return result;
}

Installation draw_sa94(Dice& dice) {
    Installation result;
    result.places.push_back({make_sa94_meter(dice)});
    result.live = [](const Installation::Uuids& uuids) {
        SA94 driver(uuids.front());
        read_driver_config(driver);
        driver.open_tty();
        while (true) {
            driver.run_main();
            gateway().sleep(IterationPause);
        }
    };
    return result;
}

/// The scheduler lets nobody run but a KM5 whose description has not come; that of an AT-T never does, as it passes for
/// a KM5 here, and so it is the one meter whose archives are read.
Installation draw_single_bus(Dice& dice) {
    Installation result;
    result.is_single_bus = true;
    result.places.push_back({make_km5_meter(0, true, dice)});
    result.places.push_back({make_km5_meter(1, false, dice), false});
    if (dice.one_in(2)) {
        result.places.push_back({make_vist_meter(0, false, dice), false});
    } else {
        result.places.push_back({make_sa94_meter(dice), false});
    }
    const auto first = static_cast<std::ptrdiff_t>(dice.below(result.places.size()));
    std::rotate(result.places.begin(), result.places.begin() + first, result.places.end());
    result.live = [](const Installation::Uuids& /*uuids*/) { run_singlebus(); };
    return result;
}

}  // namespace

std::string Installation::models() const {
    std::string all;
    for (const Place& place : places) all += (all.empty() ? "" : " + ") + place.meter->model();
    return all;
}

double Installation::least_calm() const {
    double calm = 0;
    for (const Place& place : places) {
        double with_the_others = place.meter->least_calm();
        for (const Place& other : places) {
            if (&other != &place && other.is_read) with_the_others += other.meter->calm_beside_another();
        }
        if (place.is_read) calm = std::max(calm, with_the_others);
    }
    return calm;
}

Installation draw_installation(const std::string& family, std::uint64_t seed) {
    Dice dice(seed ^ OtherThanThePlan);
    if (family == "KM5") return draw_km5(dice);
    if (family == "VIST") return draw_vist(dice);
    if (family == "VISTmodbus") return draw_modbus(dice);
    if (family == "SA94") return draw_sa94(dice);
    if (family == "SingleBus") return draw_single_bus(dice);
    throw std::invalid_argument("no such family: " + family);
}

const std::vector<std::string>& family_names() {
    static const std::vector<std::string> Names = {"KM5", "VIST", "VISTmodbus", "SA94", "SingleBus"};
    return Names;
}

}  // namespace faults
