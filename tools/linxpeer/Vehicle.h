// The whole vehicle around the metadata manager: every server it subscribes to, with
// plausible current values, the state manager and the stream manager.
#pragma once

#include "Scenario.h"

namespace vehicle {

// Adds the steps that bring the vehicle up to the front of `scenario`'s steps.
bool AddSetup(Scenario& scenario);

}  // namespace vehicle
