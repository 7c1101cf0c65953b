// Checks that a program's log says things in a given order.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Each of `parts` in `log`, none before the one listed ahead of it.
inline ::testing::AssertionResult InOrder(const std::string& log,
                                          const std::vector<std::string>& parts) {
    std::size_t at = 0;
    for (const std::string& part : parts) {
        at = log.find(part, at);
        if (at == std::string::npos) {
            return ::testing::AssertionFailure() << "'" << part << "' missing or early in:\n"
                                                 << log;
        }
    }
    return ::testing::AssertionSuccess();
}
