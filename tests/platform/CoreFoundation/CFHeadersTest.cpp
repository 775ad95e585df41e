// The platform headers compile as C++17 here and as C11 in CFHeadersFromC.c,
// both with -pedantic -Werror, and the C side works against the library.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

extern "C" int CFHeadersExerciseFromC(void);

TEST(CFHeadersTest, UsableFromCAndCpp)
{
    EXPECT_EQ(0, CFHeadersExerciseFromC());
    // CFSTR in C and in C++ yields the same interned constant.
    EXPECT_EQ(CFSTR("seven"), CFSTR("seven"));
}
