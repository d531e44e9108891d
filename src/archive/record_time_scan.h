#pragma once
// The greatest record time in the text of an archive file, read in blocks.
//
// The rule is that of a plain loop: lines by fgets into 64 bytes, each piece parsed by sscanf with "%ld,%d,%lf\n", all
// three fields wanted. Lines as this daemon writes them are recognised without that machinery; any other text (torn,
// over-long, foreign, zero bytes) goes through sscanf itself, so that the answer is the same on every file.

#include <ctime>
#include <string>
#include <string_view>

class RecordTimeScan {
  public:
    /// The next block of the file.
    void feed(std::string_view block);
    /// The greatest time so far, after the last block; 0 if no line parsed.
    std::time_t finish();

  private:
    void take_piece(std::string_view piece);

    std::string carried;  ///< the beginning of a piece that the last block did not end
    long greatest = 0;
};
