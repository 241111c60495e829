// The stock targets of module M, checked against the end population of the year.
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// no target is adjusted in this build
void checkStockTargets(Orvane&, YearStep&) {}
