// The classic option scanner, over a vector whose first element is already an argument.
#pragma once

struct Getopt {
    int optind = 0;          // index of the next element
    const char* optarg = nullptr;
    int opterr = 0;          // 1: texts on standard error
    int optopt = 0;          // the current option letter
    int sp = 1;              // position inside the current element

    // the next option letter, '?' for an unknown letter or a missing argument, -1 at the end
    int operator()(int argc, char* const* argv, const char* options);
};
