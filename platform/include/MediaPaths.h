// Where the recorder keeps its media.
#pragma once

// "/mnt/hd" on the unit. Host builds honour MEDIA_ROOT so benches and tests can run side by
// side without root.
const char* MediaRoot();
