// The help text: options, output lines and the scenario language.
#pragma once

#include <string>

std::string UsageText();
