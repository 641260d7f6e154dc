// A version string compared the loose way, as SDK and package directories are named.
//
// Valid text: an optional "v"/"V", then a digit, then only letters, digits and the
// separators '.', '-', '_' and '+'. Anything else (null, empty, a plain word, spaces,
// '/', ...) gives an invalid version.
//
// Ordering, component by component from the left:
//  - The text (less the leading "v") splits at separators and at every boundary
//    between digits and letters: "1.10rc2" -> 1, 10, rc, 2. Runs of separators
//    count as one; which separator it was does not matter ("1-2" == "1.2").
//  - Two numbers compare numerically, at any length (leading zeros ignored, no
//    overflow): 1.10 > 1.9, 1.007 == 1.7.
//  - Two words compare lexicographically, ignoring case: alpha < beta < rc.
//  - A word is less than a number: a word marks a pre-release or a letter-tagged
//    build of the version before it, so 1.0rc1 < 1.0 < 1.0.1 and 2.0-beta < 2.0.
//  - A missing component counts as the number 0: 1.0 == 1.0.0, 1.0 < 1.0.1, and by
//    the rule above 1.0 > 1.0rc1 (rc < 0).
//  - An invalid version is less than every valid one; two invalid ones are equal.
//
// Equal versions may have different text ("v1.2" == "1.2.0"); str() always gives
// the text the version was built from, so a path made with it names the real entry.
#pragma once

#include <string>
#include <vector>

#include "framework/base/api.h"

class AGENTUTIL_API Loose_Version {
 public:
  Loose_Version() = default;
  explicit Loose_Version(const char* text);
  // A NUL inside the text makes it invalid rather than cutting it short.
  explicit Loose_Version(const std::string& text)
      : Loose_Version(text.find('\0') == std::string::npos ? text.c_str() : nullptr) {}

  explicit operator bool() const { return valid_; }
  const std::string& str() const { return text_; }

  // <0, 0 or >0 as *this is older than, equal to or newer than `other`.
  int compare(const Loose_Version& other) const;

  bool operator==(const Loose_Version& o) const { return compare(o) == 0; }
  bool operator!=(const Loose_Version& o) const { return compare(o) != 0; }
  bool operator<(const Loose_Version& o) const { return compare(o) < 0; }
  bool operator>(const Loose_Version& o) const { return compare(o) > 0; }
  bool operator<=(const Loose_Version& o) const { return compare(o) <= 0; }
  bool operator>=(const Loose_Version& o) const { return compare(o) >= 0; }

 private:
  struct Component {
    bool number;
    std::string text;  // digits without leading zeros, or the word in lower case
  };

  bool parse(const std::string& text);

  std::string text_;
  std::vector<Component> parts_;
  bool valid_ = false;
};
