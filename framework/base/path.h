// Path joining without surprises: nvrt::Path_T joins a directory and a leaf with one
// separator, whatever trailing or leading separators the two parts carry.
#pragma once

#include <string>

#include "framework/base/basic_string_arg.h"

namespace nvrt {

template <class CharT>
class Path_T {
 public:
  using string_type = std::basic_string<CharT>;

  explicit Path_T(Basic_String_Arg<CharT> path) : path_(path.str()) {}

  // collapse: when true, separators at the joint are folded into exactly one
  // ("a/" + "/b" -> "a/b"); when false the parts are joined as given plus `sep`.
  Path_T(Basic_String_Arg<CharT> dir, Basic_String_Arg<CharT> leaf, CharT sep = CharT('/'),
         bool collapse = true)
      : path_(dir.str()) {
    string_type tail = leaf.str();
    if (collapse) {
      while (path_.size() > 1 && path_.back() == sep) path_.pop_back();
      size_t skip = 0;
      while (skip < tail.size() && tail[skip] == sep) ++skip;
      tail.erase(0, skip);
    }
    if (path_.empty()) {
      path_ = tail;
    } else if (!tail.empty()) {
      if (!(collapse && path_.back() == sep)) path_.push_back(sep);
      path_ += tail;
    }
  }

  const string_type& str() const { return path_; }
  const CharT* c_str() const { return path_.c_str(); }
  bool empty() const { return path_.empty(); }

 private:
  string_type path_;
};

using Path = Path_T<char>;

}  // namespace nvrt
