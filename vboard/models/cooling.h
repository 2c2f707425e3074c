#pragma once
// The board's temperature and the fans that lower it.
//
// The thermal zone is /sys/class/thermal/thermal_zone0: `temp` in thousandths of a degree Celsius,
// `type`. The board settles at `ambient` plus the rise that its heat makes, which the air of the
// fans divides: rise / (1 + `airflow` x the mean of rpm / `max_rpm`). It gets there with a time
// constant of `seconds`.
//
// Each fan is /dev/pwm-fanN. A speed request's second word is the speed in percent, 0 to 100; a
// power request's is 1 or 0; the words after it are 0. A fan that has power turns at its percentage
// of `max_rpm`, and gets to it, or comes to rest, with a time constant of `spin_seconds`. Refused:
// an unknown request (ENOTTY), a record for another channel than the node's, and values out of
// range (EINVAL); each of them is misuse.
//
// Settings, all may be left out:
//   fans           how many (2)
//   max_rpm        (4800)
//   spin_seconds   (0.8)
//   ambient        degrees (25)
//   rise           degrees that the heat raises the board by without any air (45)
//   airflow        by how much all fans at full speed divide that (3)
//   seconds        (20)

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_cooling(Board& board, Settings& settings);

} // namespace vb
