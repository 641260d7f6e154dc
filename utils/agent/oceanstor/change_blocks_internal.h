// Bitmap bytes folded into chunk extents piece by piece, so that a LUN's bitmap is never
// held whole: a run of set bits still open at the end of one piece goes on into the next.
// Bit i of the bitmap (bit i % 8 of byte i / 8, least significant first) is chunk
// `start` + i. Extents are appended in order, never overlap and are never adjacent.
// One object folds one bitmap, on one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "utils/agent/block.h"

namespace oceanstor {

class Change_Block_Folder {
 public:
  Change_Block_Folder(unsigned long start, std::vector<Block>& blocks) : start_(start), blocks_(blocks) {}
  Change_Block_Folder(const Change_Block_Folder&) = delete;
  Change_Block_Folder& operator=(const Change_Block_Folder&) = delete;

  // The next bytes of the bitmap.
  void add(const unsigned char* bytes, size_t count);
  // The next bitmap text, two hex digits a byte, the first the high half. False, with
  // the decoder's log line, when it is no hex text; nothing of it is folded then.
  bool add_hex(const std::string& text);
  // Ends a run still open at the end of the bitmap; logs and returns the number of
  // set bits. Call once, after the last piece.
  unsigned long finish();

 private:
  void add_word(uint64_t bits);
  void append(uint64_t first, uint64_t length);

  const unsigned long start_;
  std::vector<Block>& blocks_;
  uint64_t at_ = 0;  // bit index of the next whole word
  bool in_run_ = false;
  uint64_t run_start_ = 0;
  unsigned long total_ = 0;
  unsigned char carry_[8] = {};  // bytes of a word begun by one piece and ended by the next
  size_t carried_ = 0;
  std::basic_string<unsigned char> decoded_;  // add_hex's buffer, reused piece after piece
};

}  // namespace oceanstor
