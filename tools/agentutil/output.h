// How every command prints: JSON for scripts, and for people tables with headings,
// counts whose noun agrees with the number, and sizes with their unit.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "framework/json/value.h"
#include "utils/agent/block.h"

namespace cli {

// Indented JSON text and a newline on standard output.
void print_json(const json_spirit::Value& value);
// The same on one line, for listings printed a row a line.
void print_json_line(const json_spirit::Value& value);

// Columns two blanks apart under upper-case headings; an empty cell shows as "-" and
// no line ends in blanks.
class Table {
 public:
  explicit Table(std::vector<std::string> headings);
  void add(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }
  void print(std::ostream& out) const;

 private:
  std::vector<std::string> headings_;
  std::vector<std::vector<std::string>> rows_;
};

// One record as "label  value" lines, the values lined up; an empty value shows as "-".
using Fields = std::vector<std::pair<std::string, std::string>>;
void print_fields(const Fields& fields);

// "yes" or "no".
inline const char* yes_no(bool value) { return value ? "yes" : "no"; }

// "1 extent", "3 extents"; `plural` when the noun does not just take an "s".
std::string count_of(uint64_t n, const std::string& singular, const std::string& plural = "");

// "1 byte", "4095 bytes", "64 KiB", "1.5 GiB": the largest binary unit the size reaches,
// with one decimal when it is not a whole number of that unit.
std::string size_text(uint64_t bytes);

// What both changed-blocks commands print: byte extents under the chunk size they were
// cut to, with how much of `total_bytes` they cover (JSON with --json).
void print_changed_blocks(const Blocks& byte_extents, uint64_t chunk_bytes, uint64_t total_bytes);

}  // namespace cli
