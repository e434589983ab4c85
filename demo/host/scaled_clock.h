// The host's millisecond clock: real time, or a clock that runs faster.
#ifndef KORVAIN_DEMO_SCALED_CLOCK_H_
#define KORVAIN_DEMO_SCALED_CLOCK_H_

namespace demo {

// From now on the clock runs `speed` times as fast as real time, beginning `ago_s` seconds before
// now, so that it may have caught up at the end. It never goes back, whatever happens to the wall
// clock. Not to be called when the clock is in use.
void StartClock(int speed, int ago_s);

}  // namespace demo

#endif  // KORVAIN_DEMO_SCALED_CLOCK_H_
