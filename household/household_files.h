// The files the household tool writes: each goes to a temporary beside it and takes its place
// only when it is whole; a failure is an error of the run naming the file and the cause.
#pragma once
#include <cstdio>
#include <string>

// Opens directory + sub + name for writing (sub, when given, is made first); throws
// "open <path> <cause>" when it cannot be opened.
FILE* openOutput(const std::string& sub, const std::string& name);
// Flushes, closes and renames the file into place; throws "<path>: <cause>" when that fails,
// and the file is then left as it was before the run.
void closeOutput(FILE* f);
// Closes a file of a run that stopped: it is left as it was before the run.
void dropOutput(FILE* f);
