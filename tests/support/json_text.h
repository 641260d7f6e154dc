// JSON text in tests: parsed where it is written, failing the test when it is not JSON.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "framework/json/reader.h"

namespace au_test {

inline json_spirit::Value parse_json(const std::string& text) {
  json_spirit::Value v;
  EXPECT_TRUE(json_spirit::read(text, v)) << text;
  return v;
}

}  // namespace au_test
