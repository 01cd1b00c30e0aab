#include "util/zsbtool/program.h"

int main(int argc, char** argv) {
    return zsbtool::RunProgram(argc, argv);
}
