// Short names: every variable is stored in a file under a unique name of at
// most 8 bytes, paired with its full name in the long-name record.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace murv {

class MURV_DataSource;

// (full name, short name) for every variable, in dictionary order. Throws
// ErrorText 1504 when a variable can be given no short name.
std::vector<std::pair<std::string, std::string>> ComputeShortNames(const MURV_DataSource& dataset);

// The longest prefix of text that ends on a whole character and holds at
// most n bytes (an invalid sequence at the cut is dropped).
std::string WholeCharPrefix(const std::string& text, std::size_t n);

}  // namespace murv
