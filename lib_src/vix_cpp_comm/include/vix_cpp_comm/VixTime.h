/*
 * VixTime.h: the compact date, time, date-time and IPv4 values carried by records, and their
 * three-part views.
 *
 * Layouts (bit 0 = least significant), stored as plain unsigned integers and sent big-endian:
 *   vix_date_t      bits 0-15 year (signed), 16-23 month, 24-31 day
 *   vix_time_t      bits 0-15 hour (signed), 16-23 minute, 24-31 second
 *   vix_datetime_t  low 32 bits a date, high 32 bits a time
 *   vix_ip_t        an IPv4 address in network byte order in memory
 */
#ifndef VIX_CPP_COMM_VIXTIME_H
#define VIX_CPP_COMM_VIXTIME_H

#include <cstdint>

namespace kalmo_vix {

typedef uint32_t vix_date_t;
typedef uint32_t vix_time_t;
typedef uint64_t vix_datetime_t;
typedef uint32_t vix_ip_t;

// A date as its three parts.
struct VixDate {
  int16_t year;
  uint8_t month;
  uint8_t day;

  static VixDate fromValue(vix_date_t value) {
    VixDate d;
    d.year = static_cast<int16_t>(static_cast<uint16_t>(value & 0xffffu));
    d.month = static_cast<uint8_t>((value >> 16) & 0xffu);
    d.day = static_cast<uint8_t>((value >> 24) & 0xffu);
    return d;
  }
  vix_date_t toValue() const {
    return static_cast<uint32_t>(static_cast<uint16_t>(year)) |
           (static_cast<uint32_t>(month) << 16) | (static_cast<uint32_t>(day) << 24);
  }
  bool isValid() const { return isValid(year, month, day); }

  // Year in -9999..9999, month at most 12, day at most 31 (no lower bounds: month 0 and day 0
  // pass); day 31 refused in months 4, 6, 9, 11; February by the Gregorian leap rule.
  static bool isValid(int year, int month, int day);
};

// A time (or duration) as its three parts.
struct VixTime {
  int16_t hour;
  uint8_t minute;
  uint8_t second;

  static VixTime fromValue(vix_time_t value) {
    VixTime t;
    t.hour = static_cast<int16_t>(static_cast<uint16_t>(value & 0xffffu));
    t.minute = static_cast<uint8_t>((value >> 16) & 0xffu);
    t.second = static_cast<uint8_t>((value >> 24) & 0xffu);
    return t;
  }
  vix_time_t toValue() const {
    return static_cast<uint32_t>(static_cast<uint16_t>(hour)) |
           (static_cast<uint32_t>(minute) << 16) | (static_cast<uint32_t>(second) << 24);
  }
  bool isValid() const { return isValid(hour, minute, second); }

  // Hour in -999..999 (durations), minute and second in 0..59.
  static bool isValid(int hour, int minute, int second);
};

inline vix_datetime_t makeVixDateTime(vix_date_t date, vix_time_t time) {
  return static_cast<uint64_t>(date) | (static_cast<uint64_t>(time) << 32);
}
inline vix_date_t vixDateOf(vix_datetime_t value) {
  return static_cast<uint32_t>(value & 0xffffffffu);
}
inline vix_time_t vixTimeOf(vix_datetime_t value) { return static_cast<uint32_t>(value >> 32); }

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXTIME_H
