#pragma once
// Which calendar day a moment falls on, and when a day starts: the system's local time by
// default (with its daylight-saving rules), or a fixed offset from UTC so that a caller (or
// a test) can pin the zone. Day keys are written "%04d-%02d-%02d". The local calendar
// follows the system's zone as it is at each call, so a zone changed while the program runs
// (TZ, or the zone file) reaches the day keys.
// A small value; copy it to any thread.

#include <chrono>
#include <optional>
#include <string>

#include "OmniraCore/foundation/Date.h"

namespace omnira {

class DayCalendar {
 public:
  struct CivilDay {
    int year = 1970;
    unsigned month = 1;  // 1...12
    unsigned day = 1;    // 1...31
    friend bool operator==(const CivilDay&, const CivilDay&) = default;
  };

  // The system's local time zone.
  static DayCalendar local() { return DayCalendar(std::nullopt); }
  // A zone without daylight saving, `offset` ahead of UTC (UTC+2 is 2 h).
  static DayCalendar fixed(std::chrono::seconds offset) { return DayCalendar(offset); }

  CivilDay civilDay(Date date) const;
  std::string key(Date date) const;
  static std::string key(CivilDay day);
  // The first moment of the day (local midnight).
  Date startOfDay(CivilDay day) const;
  // `day` moved by a number of calendar days (negative goes back).
  static CivilDay adding(CivilDay day, int days);

 private:
  explicit DayCalendar(std::optional<std::chrono::seconds> offset) : offset_(offset) {}
  std::optional<std::chrono::seconds> offset_;  // nothing: the system's local time
};

}  // namespace omnira
