#pragma once

#include <functional>
#include <string>

#include <boost/container/flat_map.hpp>

namespace KestrinConfigManager {

/// A map text to text: headers, placeholder values, query parameters. It has the members of
/// std::map; the entries lie sorted in one piece of memory, for there is a handful of them and one
/// map is made for each request.
using TextMap = boost::container::flat_map<std::string, std::string, std::less<>>;

}  // namespace KestrinConfigManager
