#pragma once
// One fan as the System Management Controller reports it: index i of its "F<i>.." keys.

namespace omnira {

struct FanReading {
  int index = 0;          // the SMC's own fan number, from 0
  double rpm = 0;         // "F<i>Ac"
  double minimumRPM = 0;  // "F<i>Mn"; 0 when the key is missing
  double maximumRPM = 0;  // "F<i>Mx"; 0 when the key is missing

  friend bool operator==(const FanReading&, const FanReading&) = default;
};

}  // namespace omnira
