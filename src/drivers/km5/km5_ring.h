#pragma once
// The walk over a meter's archive ring, from the first wanted index to the newest one.

/// Indices as the meter tells them; an archive that has turned over has its last index in front of its first.
struct KM5_ring {
    int first_idx;
    int last_idx;
    int begin;
    int end;  ///< inclusive; the record count, one past the ring, where the ring has turned

    KM5_ring(int first, int last, int count)
        : first_idx(first), last_idx(last), begin(first), end(last >= first ? last : count) {}

    /// The index behind `idx`: at the end of a ring that has turned the walk goes on, once, from 0 to the last index.
    int next(int idx) {
        if (last_idx >= first_idx || idx != end) return idx + 1;
        end = last_idx;
        first_idx = 0;
        last_idx = 1;
        return 0;
    }
};
