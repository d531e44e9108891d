#pragma once
// A small table of byte buffers, addressed by name when they are made and by index afterwards.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

class UniLog;

class NamedBuffer {
  public:
    /// `log` is not owned and may be null.
    NamedBuffer(int capacity, UniLog* log);

    /// Makes a zeroed buffer. Its index, counted from 0; -1 when the table holds one more than its capacity, as it
    /// always has, or the name has more than 150 characters.
    int CreateBuffer(const std::string& name, int size);
    /// The bytes of a buffer; an empty span with a null pointer for an index that does not exist.
    std::span<std::uint8_t> GetBuffer(int index);
    /// The index of the first buffer of that name, -1 for none and for a null name.
    int FindBuffer(const char* name) const;
    /// Appends a byte. A buffer that becomes full is emptied at once, and its content is lost.
    void PutByte(std::uint8_t byte, int index);
    /// Empties and zeroes.
    void ClearBuffer(int index);
    /// Takes away the first `n` bytes.
    void DropFront(int index, int n);

  private:
    struct NamedBufferEntry {
        std::string name;
        std::vector<std::uint8_t> data;
        int fill = -1;  ///< index of the last byte written, -1 when empty
    };

    NamedBufferEntry* entry(int index);

    std::vector<NamedBufferEntry> entries;
    int capacity;
    UniLog* log;
};
