#pragma once
// The greatest record time in the text of an archive file, read in blocks.
//
// The rule is that of a plain loop: lines by fgets into 64 bytes, each piece parsed by sscanf with "%ld,%d,%lf\n", all
// three fields wanted. Only lines that can raise the result are parsed: of those that begin as this daemon writes them,
// with ten digits and a comma, the newest of each block, and the others of that block only if the newest turns out to
// be torn. Any other text (over-long, foreign, zero bytes) goes through sscanf. The answer is the same on every file.

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
    void take_carried(std::string_view& block);
    void take_piece(std::string_view piece);

    std::string carried;  ///< the beginning of a piece that the last block did not end
    long greatest = 0;
};
