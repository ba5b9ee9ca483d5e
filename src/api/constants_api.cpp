// The handle-free calls: special values and date/time conversions.
#include "murvio.h"
#include "model/constants.h"
#include "model/datetime.h"

extern "C" {

MURV_API double MURV_CALL murvSysmisVal(void) { return murv::SysmisValue(); }

MURV_API void MURV_CALL murvHostSysmisVal(double* value) {
    if (value) *value = murv::SysmisValue();
}

MURV_API void MURV_CALL murvLowHighVal(double* lowest, double* highest) {
    if (lowest) *lowest = murv::LowestValue();
    if (highest) *highest = murv::HighestValue();
}

MURV_API int MURV_CALL murvConvertDate(int day, int month, int year, double* date) {
    return murv::ConvertDate(day, month, year, date);
}

MURV_API int MURV_CALL murvConvertMURVDate(int* day, int* month, int* year, double date) {
    return murv::ConvertSecondsToDate(date, day, month, year);
}

MURV_API int MURV_CALL murvConvertTime(int day, int hour, int minute, double second, double* time) {
    return murv::ConvertTime(day, hour, minute, second, time);
}

MURV_API int MURV_CALL murvConvertMURVTime(int* day, int* hour, int* minute, double* second, double time) {
    return murv::ConvertSecondsToTime(time, day, hour, minute, second);
}

}  // extern "C"
