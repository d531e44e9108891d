#pragma once
// The plan of a faulty year: what goes wrong, when, and for how long, all drawn from one seed.

#include <cstdint>
#include <string>
#include <vector>

namespace faults {

/// Numbers from a seed, the same on every machine.
class Dice {
  public:
    explicit Dice(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    /// 0 up to, without, `end`.
    std::uint64_t below(std::uint64_t end) { return next() % end; }
    double between(double low, double high);
    bool one_in(std::uint64_t times) { return below(times) == 0; }

  private:
    std::uint64_t state_;
};

enum class Fault {
    Noise,           ///< a good part of the answers is disturbed
    CutAnswers,      ///< a good part of them is cut
    Silence,         ///< nobody is on the line
    StrayBytes,      ///< bytes that nobody has sent lie on the line
    Swap,            ///< another meter answers in the meter's place
    ClockForward,    ///< the gateway's clock is ahead for a while
    ClockBack,       ///< it is behind
    Pause,           ///< a neighbour holds the bus
    Restart,         ///< the process is killed and starts again at once
    PowerCut,        ///< at a durable write; the gateway may be off for a while
    DiskFull,        ///< the storage takes a few pages more, then none
    ReadOnly,        ///< the storage takes nothing
    LostDurability,  ///< the storage takes everything, and says that it is not durable
    VanishedFolder,  ///< a folder of archive files is removed, and made again later
};
inline constexpr int FaultKinds = 14;
std::string fault_name(Fault fault);

/// One piece of the plan: a fault, and behind it a quiet stretch in which everything that is promised has its chance.
struct Episode {
    double begin = 0;     ///< seconds from the beginning of the year
    double fault_at = 0;  ///< likewise, as all below
    double fault_end = 0;
    double calm_at = 0;  ///< the bus is free, the line is good
    double calm_end = 0;
    Fault fault = Fault::Noise;
    double background = 0;  ///< rate of disturbed answers outside of the calm stretch
    bool restart_for_calm = false;
    std::uint64_t number = 0;  ///< for what else has to be drawn
    double free_every = 0;     ///< how often the neighbour leaves the bus free outside of the calm stretch
    double free_offset = 0;
};

struct Plan {
    std::string start;  ///< local time
    std::vector<Episode> episodes;
};

/// A quiet stretch has `least_calm` seconds at least.
Plan draw_plan(std::uint64_t seed, int days, double least_calm = 0);

}  // namespace faults
