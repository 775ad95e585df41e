#include "CAException.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(CAExceptionTest, CarriesStatusAndBoundedOperationText)
{
    try {
        throw CAXException("open the stream", -10868);
    } catch (const CAXException& e) {
        EXPECT_EQ(e.GetError(), -10868);
        EXPECT_STREQ(e.GetOperation(), "open the stream");
    }

    const std::string longText(1000, 'x');
    CAXException cut(longText.c_str(), -50);
    EXPECT_EQ(std::strlen(cut.GetOperation()), CAXException::kOperationSize - 1);
    EXPECT_STREQ(CAXException(nullptr, 0).GetOperation(), "");

    try {
        throw CAException(-4);
    } catch (const CAException& e) {
        EXPECT_EQ(e.GetError(), -4);
    }
}

} // namespace
