// Plays a capture (Capture.h) into a fresh process: the roles of the capture send what they
// sent, and every message they received is waited for before the lines after it go on, so the
// process sees the same traffic in the same order whatever its speed.
#pragma once

#include <string>

#include "Peer.h"

namespace replay {

// `speed`: 1 the original timing, 10 ten times faster, 0 as fast as the process takes it
// (each line goes as soon as the messages before it have arrived). Served items are answered
// from the capture's subscribe replies. A `tick` line writes the tick to the file named by
// HOST_SYSTICK_FILE, the clock of the processes of this domain on a host. Returns the exit
// status of a scenario: 0 replayed, 1 a message did not arrive within `withinMs`, 2 the
// capture cannot be read or a line cannot be carried out.
int Run(Peer& peer, const std::string& path, double speed, int withinMs);

}  // namespace replay
