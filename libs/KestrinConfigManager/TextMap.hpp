#pragma once

#include <functional>
#include <string>
#include <utility>

#include <boost/container/flat_map.hpp>
#include <boost/container/small_vector.hpp>

namespace KestrinConfigManager {

/// A map text to text: headers, placeholder values, query parameters. It has the members of
/// std::map; the entries lie sorted in one piece of memory, and few of them in the map itself, for
/// there is a handful of them and several maps are made for each request.
using TextMap = boost::container::flat_map<
    std::string, std::string, std::less<>,
    boost::container::small_vector<std::pair<std::string, std::string>, 4>>;

}  // namespace KestrinConfigManager
