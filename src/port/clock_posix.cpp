#include "port/clock.h"

namespace murv::port {

bool LocalTime(std::time_t t, std::tm* out) { return ::localtime_r(&t, out) != nullptr; }

}  // namespace murv::port
