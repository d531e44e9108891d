#include "archive/named_buffer.h"

#include <algorithm>

#include "core/uni_log.h"

namespace {

constexpr std::size_t LongestName = 150;

}  // namespace

NamedBuffer::NamedBuffer(int most_entries, UniLog* logger) : capacity(most_entries), log(logger) {}

int NamedBuffer::CreateBuffer(const std::string& name, int size) {
    const int index = static_cast<int>(entries.size());
    if (index > capacity) return -1;
    if (name.size() > LongestName || size < 0) {
        log_line(log, "Error:  while naming buffer in NamedBuffer::CreateBuffer");
        return -1;
    }
    entries.push_back({name, std::vector<std::uint8_t>(static_cast<std::size_t>(size), 0), -1});
    log_line(log, "Allocate ", size, " bytes for buffer ", name);
    return index;
}

NamedBuffer::NamedBufferEntry* NamedBuffer::entry(int index) {
    if (index < 0 || index >= static_cast<int>(entries.size())) return nullptr;
    return &entries[static_cast<std::size_t>(index)];
}

std::span<std::uint8_t> NamedBuffer::GetBuffer(int index) {
    NamedBufferEntry* const found = entry(index);
    return found != nullptr ? std::span(found->data) : std::span<std::uint8_t>();
}

int NamedBuffer::FindBuffer(const char* name) const {
    if (name == nullptr) return -1;
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [name](const NamedBufferEntry& candidate) { return candidate.name == name; });
    return found != entries.end() ? static_cast<int>(found - entries.begin()) : -1;
}

void NamedBuffer::PutByte(std::uint8_t byte, int index) {
    NamedBufferEntry* const found = entry(index);
    if (found == nullptr || found->data.empty()) return;
    ++found->fill;
    found->data[static_cast<std::size_t>(found->fill)] = byte;
    if (found->fill + 1 == static_cast<int>(found->data.size())) ClearBuffer(index);
}

void NamedBuffer::ClearBuffer(int index) {
    NamedBufferEntry* const found = entry(index);
    if (found == nullptr) return;
    found->fill = -1;
    std::fill(found->data.begin(), found->data.end(), std::uint8_t{0});
}

void NamedBuffer::DropFront(int index, int n) {
    NamedBufferEntry* const found = entry(index);
    if (found == nullptr || n <= 0) return;
    const int dropped = std::min(n, found->fill + 1);
    std::copy(found->data.begin() + dropped, found->data.begin() + found->fill + 1, found->data.begin());
    found->fill -= dropped;
}
