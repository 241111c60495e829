// The progress line of a long run: on a terminal one line that is rewritten in place (step k of
// n, the time gone, an estimate of the time left); nothing at all when standard output is not a
// terminal, so that logs and captured output stay as they are.
#pragma once
#include <string>

namespace progress {

// begins a run of total steps; the line shows from the first step on. text is the line's printf
// format with step, total, label, time gone and time left (%d %d %d %s %s), from the dictionary.
void start(int total, const std::string& text);
// step k (1-based) of the run begins; label is what the step is called (the year)
void step(int k, int label);
// removes the line for good
void finish();

// a console line is about to be printed: the line makes room (returns whether it was shown),
// and is drawn again below the console line by redraw
bool makeRoom();
void redraw();

} // namespace progress
