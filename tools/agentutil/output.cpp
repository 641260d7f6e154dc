#include "tools/agentutil/output.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "framework/json/writer.h"
#include "framework/log/loggable.h"
#include "tools/agentutil/cli_common.h"

namespace cli {

void print_json(const json_spirit::Value& value) { std::cout << json_spirit::write(value, true) << "\n"; }

void print_json_line(const json_spirit::Value& value) { std::cout << json_spirit::write(value) << "\n"; }

Table::Table(std::vector<std::string> headings) : headings_(std::move(headings)) {}

void Table::add(std::vector<std::string> cells) {
  cells.resize(headings_.size());
  for (auto& c : cells) c = c.empty() ? "-" : loggable(c);
  rows_.push_back(std::move(cells));
}

void Table::print(std::ostream& out) const {
  std::vector<std::size_t> widths;
  for (const auto& h : headings_) widths.push_back(h.size());
  for (const auto& row : rows_)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      text += cells[i];
      if (i + 1 < cells.size()) text.append(widths[i] - cells[i].size() + 2, ' ');
    }
    out << text << "\n";
  };
  line(headings_);
  for (const auto& row : rows_) line(row);
}

void print_fields(const Fields& fields) {
  std::size_t width = 0;
  for (const auto& f : fields) width = std::max(width, f.first.size());
  for (const auto& [label, value] : fields)
    std::cout << label << std::string(width - label.size() + 2, ' ') << (value.empty() ? "-" : loggable(value)) << "\n";
}

std::string count_of(uint64_t n, const std::string& singular, const std::string& plural) {
  return std::to_string(n) + " " + (n == 1 ? singular : plural.empty() ? singular + "s" : plural);
}

std::string size_text(uint64_t bytes) {
  static const char* const units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return count_of(bytes, "byte");
  int unit = 0;
  uint64_t scale = 1024;
  while (unit + 1 < 6 && bytes / scale >= 1024) {
    scale *= 1024;
    ++unit;
  }
  if (bytes % scale == 0) return std::to_string(bytes / scale) + " " + units[unit];
  if (static_cast<double>(bytes) / static_cast<double>(scale) >= 1023.95 && unit + 1 < 6) {
    scale *= 1024;  // would print as "1024.0" of this unit
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", static_cast<double>(bytes) / static_cast<double>(scale), units[unit]);
  return text;
}

void print_changed_blocks(const Blocks& byte_extents, uint64_t chunk_bytes, uint64_t total_bytes) {
  uint64_t changed = 0;
  for (const auto& b : byte_extents) changed += b.length;
  if (options().json) {
    json_spirit::Array rows;
    for (const auto& b : byte_extents) rows.emplace_back(json_spirit::Object{{"offset", b.offset}, {"length", b.length}});
    print_json(json_spirit::Object{{"chunk_size", chunk_bytes}, {"extents", rows}, {"changed_bytes", changed},
                                   {"total_bytes", total_bytes}});
    return;
  }
  const double percent = total_bytes ? 100.0 * static_cast<double>(changed) / static_cast<double>(total_bytes) : 0.0;
  char share[16];
  if (changed > 0 && percent < 0.05)
    std::snprintf(share, sizeof share, "under 0.1%%");
  else
    std::snprintf(share, sizeof share, "%.1f%%", percent);
  std::cout << count_of(byte_extents.size(), "extent") << " to read: " << size_text(changed) << " of "
            << size_text(total_bytes) << " (" << share << "), chunk size " << size_text(chunk_bytes)
            << "; offsets and lengths in bytes\n";
  if (byte_extents.empty()) return;
  Table table({"OFFSET", "LENGTH"});
  for (const auto& b : byte_extents) table.add({std::to_string(b.offset), std::to_string(b.length)});
  table.print(std::cout);
}

}  // namespace cli
