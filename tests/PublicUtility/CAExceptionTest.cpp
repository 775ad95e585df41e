#include "CAException.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(CAExceptionTest, OperationTextIsCopiedAndBounded)
{
    std::string text = "open the stream";
    CAXException copied(text.c_str(), -10868);
    text[0] = 'X';
    EXPECT_STREQ(copied.GetOperation(), "open the stream");

    const std::string longText(1000, 'x');
    CAXException cut(longText.c_str(), -50);
    EXPECT_EQ(std::strlen(cut.GetOperation()), CAXException::kOperationSize - 1);
    EXPECT_STREQ(CAXException(nullptr, 0).GetOperation(), "");
}

} // namespace
