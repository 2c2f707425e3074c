// The sinks that the logging facility brings along.
#pragma once

#include <hal_bsp/log.h>

namespace hal::logging {

// Writes one line with the time of day to the event's stream.
void stderr_callback_func(log_event* ev);

// Writes one line with the date and time to the event's stream.
void file_callback_func(log_event* ev);

} // namespace hal::logging
