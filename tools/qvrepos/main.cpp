// qvrepos: the services of the Repository Resource Library on the command line.
//
// Results go to standard output, everything else to standard error. Exit status: 0 success, 1 the operation failed (for
// some input), 2 wrong usage.
#include "commandline.h"

int main(int argc, char** argv) { return runCommandLine(argc, argv); }
