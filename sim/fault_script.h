#pragma once
// When a simulated meter misbehaves: the part of the fault scripts that is the same for every family.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <stdexcept>
#include <utility>
#include <vector>

namespace sim {

/// A small generator with the same numbers on every machine (splitmix64).
class FaultRandom {
  public:
    explicit FaultRandom(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15ULL;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    /// 0 up to but not including 1.
    double fraction() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

  private:
    std::uint64_t state_;
};

/// Decides for each answer which fault it suffers. Sources are asked in this order, and the first that has one wins:
/// the script, the periodic faults, the random ones. A fault counts only the answers that it fits.
///
/// A `Fault` made by default is a good answer; it has a `kind`, one of which is None, and tells by `fits` whether the
/// answer to a request can suffer it.
template <typename Fault>
class FaultScript {
  public:
    /// Behind what is scripted.
    void next(std::size_t answers, Fault fault) {
        if (answers > 0) scripted_.push_back({answers, std::move(fault)});
    }
    /// The k-th, 2k-th, ... answer.
    void each(std::size_t k, Fault fault) {
        if (k == 0) throw std::invalid_argument("each 0th answer");
        periodic_.push_back({k, 0, std::move(fault)});
    }
    /// One of them, at `rate` 0..1.
    void randomly(double rate, std::uint64_t seed, std::vector<Fault> faults) {
        if (faults.empty()) throw std::invalid_argument("no faults to choose from");
        random_.push_back({rate, FaultRandom(seed), std::move(faults)});
    }
    void clear() {
        scripted_.clear();
        periodic_.clear();
        random_.clear();
    }

    /// The fault of the answer to a request, which the family describes as `fits` wants it.
    template <typename... Request>
    Fault choose(const Request&... request) {
        Fault fault = look_up(request...);
        if (fault.kind != Fault::Kind::None) ++made_;
        return fault;
    }
    /// Answers that the script still waits for.
    std::size_t scripted_left() const {
        std::size_t left = 0;
        for (const auto& entry : scripted_) left += entry.left;
        return left;
    }
    std::size_t faults_made() const { return made_; }

  private:
    struct Scripted {
        std::size_t left;
        Fault fault;
    };
    struct Periodic {
        std::size_t period;
        std::size_t seen;
        Fault fault;
    };
    struct Random {
        double rate;
        FaultRandom generator;
        std::vector<Fault> faults;
    };

    template <typename... Request>
    Fault look_up(const Request&... request) {
        const Periodic* due = nullptr;
        for (auto& periodic : periodic_) {
            if (!periodic.fault.fits(request...)) continue;
            if (++periodic.seen % periodic.period == 0 && due == nullptr) due = &periodic;
        }
        for (auto entry = scripted_.begin(); entry != scripted_.end(); ++entry) {
            if (!entry->fault.fits(request...)) continue;
            Fault fault = entry->fault;
            if (--entry->left == 0) scripted_.erase(entry);
            return fault;
        }
        if (due != nullptr) return due->fault;
        for (auto& random : random_) {
            if (random.generator.fraction() >= random.rate) continue;
            const Fault& fault = random.faults[random.generator.next() % random.faults.size()];
            if (fault.fits(request...)) return fault;
        }
        return Fault{};
    }

    std::deque<Scripted> scripted_;
    std::vector<Periodic> periodic_;
    std::vector<Random> random_;
    std::size_t made_ = 0;
};

}  // namespace sim
