// A non-owning string argument: lets one signature take a C string or a std::string
// without copying. A null C string reads as the empty string.
#pragma once

#include <cstring>
#include <string>

template <class CharT>
class Basic_String_Arg {
 public:
  Basic_String_Arg() : str_(empty_str()), len_(0) {}
  Basic_String_Arg(const CharT* s)  // NOLINT(google-explicit-constructor): by design
      : str_(s ? s : empty_str()), len_(s ? std::char_traits<CharT>::length(s) : 0) {}
  Basic_String_Arg(const std::basic_string<CharT>& s)  // NOLINT(google-explicit-constructor)
      : str_(s.c_str()), len_(s.size()) {}

  const CharT* c_str() const { return str_; }
  std::size_t size() const { return len_; }
  bool empty() const { return len_ == 0; }
  std::basic_string<CharT> str() const { return std::basic_string<CharT>(str_, len_); }

 private:
  static const CharT* empty_str() {
    static const CharT nothing[1] = {CharT()};
    return nothing;
  }
  const CharT* str_;
  std::size_t len_;
};

using String_Arg = Basic_String_Arg<char>;
