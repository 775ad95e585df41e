#include "Application.h"

#include <cstdio>

int main(int argc, char** argv)
{
    return Application(stdout, stderr).run(argc, argv);
}
