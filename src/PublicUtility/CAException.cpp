#include "CAException.h"

#include <cstring>

CAXException::CAXException(const char* operation, OSStatus err) : mOperation{}, mError(err)
{
    if (operation != nullptr) {
        std::strncpy(mOperation, operation, kOperationSize - 1);
    }
}
