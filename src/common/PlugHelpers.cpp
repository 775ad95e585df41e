#include "PlugHelpers.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>

void* PlugMemAllocZeroInit(long long size)
{
    if (size < 0) {
        return nullptr;
    }
    const auto bytes = static_cast<std::size_t>(size);
    void* block = ::operator new(bytes, std::nothrow);
    if (block != nullptr) {
        std::memset(block, 0, bytes);
    }
    return block;
}

void PlugMemFree(void* p)
{
    ::operator delete(p);
}

double PlugGetRatioFromdB(long tenthsOfDb, long floorDb)
{
    const double tenths = static_cast<double>(tenthsOfDb);
    const double floorLevel = static_cast<double>(floorDb);
    if (floorLevel * 10.0 >= tenths) {
        return 0.0;
    }
    return std::pow(10.0, tenths / 200.0);
}
