// String helpers of the utilities library. Stateless; any thread.
#pragma once

#include <string>
#include <vector>

namespace utils {

// Splits `s` at every occurrence of `sep` (a whole string, not a set of characters). Empty parts
// are kept, so "a  b" split at " " gives "a", "", "b"; an empty `s` gives one empty part; an empty
// `sep` gives `s` whole.
std::vector<std::string> split(const std::string& s, const std::string& sep);

// The instrument key: the exchange code immediately followed by the instrument code.
inline std::string nqStockKey(const std::string& market, const std::string& code) { return market + code; }

}  // namespace utils
