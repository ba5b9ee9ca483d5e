// Local time of the host, for the creation stamps of new files.
#pragma once

#include <ctime>

namespace murv::port {

// Breaks t down into local time; false when the system cannot.
bool LocalTime(std::time_t t, std::tm* out);

}  // namespace murv::port
