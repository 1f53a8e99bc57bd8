// Interruptions of a program that has work to end before itself.
#pragma once

namespace tovrek {

// From now on SIGINT, SIGTERM and SIGHUP do not end this process: the first is kept for
// interruption(). One that the process was started to ignore is ignored further on.
void noteInterruptions();
// The number of the signal that came, 0 for none.
int interruption();
// Ends this process by that signal, so that whoever waits for it knows.
void endByInterruption();

}  // namespace tovrek
