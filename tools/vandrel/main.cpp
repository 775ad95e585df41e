#include "Application.h"
#include "HeapPrefault.h"

#include <cstdio>

int main(int argc, char** argv)
{
    // A stereo run's heap stays within half a mebibyte; more channels fault
    // in the rest as usual.
    prefaultHeap(512u << 10);
    return Application(stdout, stderr).run(argc, argv);
}
