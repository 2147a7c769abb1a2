// Validity rules of the compact date and time values.
#include "vix_cpp_comm/VixTime.h"

namespace kalmo_vix {

bool VixDate::isValid(int year, int month, int day) {
  if (year < -9999 || year > 9999 || month > 12 || day > 31) return false;
  if (month < 0 || day < 0) return false;  // not representable in the 8-bit parts
  if ((month == 4 || month == 6 || month == 9 || month == 11) && day == 31) return false;
  if (month == 2) {
    int maxDay = 28;
    if (year % 400 == 0) {
      maxDay = 29;
    } else if (year % 100 == 0) {
      maxDay = 28;
    } else if (year % 4 == 0) {
      maxDay = 29;
    }
    return day <= maxDay;
  }
  return true;
}

bool VixTime::isValid(int hour, int minute, int second) {
  return hour >= -999 && hour <= 999 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

}  // namespace kalmo_vix
