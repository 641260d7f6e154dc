// Helpers shared by the readers of array replies.
#pragma once

#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

#include "framework/json/value.h"

namespace oceanstor {

// Appends one record per object element of `array`, read with the record's operator<<.
// Elements of any other type are skipped; a record that does not read throws
// std::domain_error, leaving the records read so far in `seq`.
template <class Sequence>
void trans_array_or_throw(Sequence& seq, const std::vector<json_spirit::Value>& array) {
  seq.reserve(seq.size() + array.size());
  for (const json_spirit::Value& element : array) {
    if (element.type() != json_spirit::obj_type) continue;
    typename Sequence::value_type record;
    if (!(record << element)) throw std::domain_error("Failed to load elem content from JSON.\n");
    seq.push_back(std::move(record));
  }
}

// Runs `read` (returning bool); any exception is handed to `report` as text and gives false.
// Readers use it so that nothing thrown while picking a reply apart reaches their callers.
template <class Read, class Report>
bool read_or_report(Read&& read, Report&& report) {
  try {
    return read();
  } catch (const std::exception& e) {
    report(e.what());
  } catch (...) {
    report("unknown exception");
  }
  return false;
}

}  // namespace oceanstor
