#pragma once
// The video-timing generator, by default at /dev/vgen: makes the output's frames from a pixel
// clock that programs trim, and stamps each on the time scale of a reference. Its physics is in
// video_timing_core.h.
//
// Settings: "node"; "h_total", "v_total", "clock_hz" (output raster and pixel clock at the start);
// "offset_ppm", "drift_ppm_per_hour" (the true clock against what it is set to); "phase_ns" (from
// the start to the first frame); "reference_ppm", "wander_ns", "wander_seconds" (the time scale
// against board time); "stamp_start_ns" (the scale at the start); "jitter_ns", "seed" (of the
// stamps); "clock_min", "clock_max" (what the clock can be set to, Hz); "frames_per_read" (below).
//
// What is ours to choose, and what programs may rely on:
// - The time scale is nanoseconds. The reference grid of a frame rate has an edge at every
//   multiple of its period on that scale, so a reference that is fast or wanders shows in the
//   stamps. The ring is empty (zeros) until the first frames have passed.
// - The output runs by itself, whether the generator is enabled or not. Enabling (frame rate in
//   1/100 Hz) tells it the reference whose phase `vgen.show` reports; disabling forgets it. A rate
//   of 0, or an argument of disable that is not 0, is EINVAL.
// - A clock outside "clock_min" .. "clock_max" is EINVAL and changes nothing. Reading the clock
//   rate gives what was set, not what is true.
// - Forcing vsync starts the next frame at the next multiple of the given cycle in nanoseconds on
//   the time scale; 0 is EINVAL.
// - Time is board time. With "frames_per_read" N above 0 it stands still, and each read of the
//   time stamps lets N frames pass before it: runs are then the same to the last bit, and as fast
//   as the program. `vgen.pace` changes N.

#include "core/board.h"
#include "core/settings.h"

namespace vb {

std::unique_ptr<Model> make_video_timing(Board& board, Settings& settings);

} // namespace vb
