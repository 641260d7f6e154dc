// Directory entries as a single-pass range, usable with range-for and with Boost
// range adaptors:
//
//   Directory_Reader reader("/opt/sdk");
//   for (const auto& e : iterate_directory(Directory_Iterator_T<char>(reader))) ...
//   if (reader.last_error() != 0) ...      // 0, or the errno of opendir/readdir
//
// "." and ".." are skipped. A directory that cannot be opened gives an empty range
// and sets last_error(). Nothing is logged here: whether a missing directory is a
// failure is the caller's call. Names are narrow (char) only.
#pragma once

#include <boost/iterator/iterator_facade.hpp>
#include <boost/range/iterator_range.hpp>
#include <dirent.h>

#include <memory>
#include <string>
#include <type_traits>

#include "framework/base/api.h"

template <class CharT>
class Directory_Entry_T {
  static_assert(std::is_same<CharT, char>::value, "directory names are read as char");

 public:
  Directory_Entry_T() = default;
  Directory_Entry_T(std::basic_string<CharT> name, bool is_dir)
      : name_(std::move(name)), is_dir_(is_dir) {}

  const std::basic_string<CharT>& name() const { return name_; }
  // A directory, or a symbolic link to one.
  bool is_dir() const { return is_dir_; }

 private:
  std::basic_string<CharT> name_;
  bool is_dir_ = false;
};

using Directory_Entry = Directory_Entry_T<char>;

// Owns the open directory stream; iterators over it share its position.
class AGENTUTIL_API Directory_Reader {
 public:
  explicit Directory_Reader(const char* path);
  ~Directory_Reader();
  Directory_Reader(const Directory_Reader&) = delete;
  Directory_Reader& operator=(const Directory_Reader&) = delete;

  // The next entry other than "." and ".."; false at the end or on an error.
  bool next(Directory_Entry& entry);
  bool is_open() const { return dir_ != nullptr; }
  int last_error() const { return last_error_; }
  const std::string& path() const { return path_; }

 private:
  bool entry_is_dir(const struct dirent& d) const;

  std::string path_;
  DIR* dir_;
  int last_error_;
};

template <class CharT>
class Directory_Iterator_T
    : public boost::iterator_facade<Directory_Iterator_T<CharT>, const Directory_Entry_T<CharT>,
                                    boost::single_pass_traversal_tag> {
 public:
  // The end of every directory.
  Directory_Iterator_T() = default;
  // Reads `reader`, which must outlive the iteration.
  explicit Directory_Iterator_T(Directory_Reader& reader)
      : reader_(std::shared_ptr<Directory_Reader>(), &reader), at_end_(false) {
    increment();
  }
  // Opens `path` and keeps the reader alive for as long as a copy of this iterator.
  explicit Directory_Iterator_T(const CharT* path)
      : reader_(std::make_shared<Directory_Reader>(path)), at_end_(false) {
    increment();
  }

  // The reader behind this iterator, also once it reached the end (null only for a
  // default-constructed iterator): copies keep it, so last_error() stays reachable.
  const Directory_Reader* reader() const { return reader_.get(); }

 private:
  friend class boost::iterator_core_access;

  const Directory_Entry_T<CharT>& dereference() const { return entry_; }
  void increment() {
    if (reader_ == nullptr || !reader_->next(entry_)) at_end_ = true;
  }
  bool equal(const Directory_Iterator_T& other) const {
    if (at_end_ || other.at_end_) return at_end_ == other.at_end_;
    return reader_ == other.reader_;
  }

  std::shared_ptr<Directory_Reader> reader_;
  Directory_Entry_T<CharT> entry_;
  bool at_end_ = true;
};

using Directory_Iterator = Directory_Iterator_T<char>;

template <class CharT>
boost::iterator_range<Directory_Iterator_T<CharT>> iterate_directory(
    Directory_Iterator_T<CharT> begin) {
  return boost::make_iterator_range(std::move(begin), Directory_Iterator_T<CharT>());
}

inline boost::iterator_range<Directory_Iterator> iterate_directory(Directory_Reader& reader) {
  return iterate_directory(Directory_Iterator(reader));
}
