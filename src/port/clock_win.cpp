#include "port/clock.h"

namespace murv::port {

bool LocalTime(std::time_t t, std::tm* out) { return ::localtime_s(out, &t) == 0; }

}  // namespace murv::port
