#include "Systick.h"

#include "TestEnv.h"

#include <gtest/gtest.h>
#include <cstdlib>

TEST(Systick, TickFileDecidesTheTick) {
    TestEnv env;
    const std::string file = env.Path("tick");
    ::setenv("HOST_SYSTICK_FILE", file.c_str(), 1);
    Systick systick;

    EXPECT_EQ(Systick::kUnavailable, systick.SystemTick());  // missing
    for (const char* bad : {"", "abc", "12x", "-5", "4294967296", " \n"}) {
        env.WriteFile("tick", bad);
        EXPECT_EQ(Systick::kUnavailable, systick.SystemTick()) << '"' << bad << '"';
    }
    env.WriteFile("tick", "123456\n");
    EXPECT_EQ(123456u, systick.SystemTick());
    env.WriteFile("tick", "4294967294");
    EXPECT_EQ(4294967294u, systick.SystemTick());
    env.WriteFile("tick", "0");
    EXPECT_EQ(0u, systick.SystemTick());
    ::unsetenv("HOST_SYSTICK_FILE");
}

TEST(Systick, MonotonicTickIsAlwaysAvailable) {
    ::unsetenv("HOST_SYSTICK_FILE");
    Systick systick;
    const unsigned int first = systick.SystemTick();
    const unsigned int second = systick.SystemTick();
    EXPECT_NE(Systick::kUnavailable, first);
    EXPECT_NE(Systick::kUnavailable, second);
    // Unsigned difference stays small even across a 32-bit wrap.
    EXPECT_LT(second - first, 60000u);
}
