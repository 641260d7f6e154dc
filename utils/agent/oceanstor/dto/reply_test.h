// Test helper: a device-manager reply from its JSON text.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "framework/json/reader.h"

namespace au_test {

inline json_spirit::Value reply(const std::string& text) {
  json_spirit::Value v;
  EXPECT_TRUE(json_spirit::read(text, v)) << text;
  return v;
}

}  // namespace au_test
