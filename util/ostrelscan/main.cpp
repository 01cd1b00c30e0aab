#include <cstdio>
#include <new>

#include "util/ostrelscan/commandLine.h"

int main(int argc, char** argv) {
    try {
        return RunProgram(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fputs("ostrelscan: no memory\n", stderr);
        return 1;
    }
}
