// The stock targets of module M, checked against the end population of the year.
#include "kernel/run_object.h"
#include "kernel/year_step.h"

// no target is adjusted in this build
void checkStockTargets(Orvane&, YearStep&) {}
