#include "utils/agent/ceph/ceph_config.h"

#include <ace/Log_Msg.h>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <exception>
#include <sstream>

namespace ceph {

namespace {

using boost::property_tree::ptree;

// Ceph names a [global] option by its key, any other by "<section>_<key>". An existing
// name is kept: the first occurrence in the text wins.
void add_options(const ptree& tree, std::map<std::string, json_spirit::Value>& options) {
  for (const auto& section : tree) {
    const bool global = section.first == "global";
    for (const auto& key : section.second) {
      const std::string name = global ? key.first : section.first + "_" + key.first;
      options.emplace(name, json_spirit::Value(key.second.data()));
    }
  }
}

// The first `lines` lines of `text`.
std::string leading_lines(const std::string& text, unsigned long lines) {
  std::string::size_type end = 0;
  for (unsigned long n = 0; n < lines && end != std::string::npos; ++n) {
    end = text.find('\n', end);
    if (end != std::string::npos) ++end;
  }
  return end == std::string::npos ? text : text.substr(0, end);
}

ptree parse_ini(const std::string& text) {
  std::istringstream in(text);
  ptree tree;
  boost::property_tree::ini_parser::read_ini(in, tree);
  return tree;
}

}  // namespace

Ceph_Config::Ceph_Config(const std::string& text) {
  try {
    add_options(parse_ini(text), options_);
  } catch (const boost::property_tree::ini_parser_error& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception occurred in parse ini: %s\n"), e.what()));
    // The reader gives all or nothing; the lines above the bad one are read again so
    // that what came before the error is still applied.
    try {
      if (e.line() > 1) add_options(parse_ini(leading_lines(text, e.line() - 1)), options_);
    } catch (const std::exception&) {
    }
  } catch (const std::exception& e) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected exception occurred in parse ini: %s\n"), e.what()));
  }
}

}  // namespace ceph
