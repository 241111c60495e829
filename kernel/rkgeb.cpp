// Births: the new-born of the year by the fertility rates of the birth types, entering the
// population at age group 0, with the birth targets of module G.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// no births in this build
void births(MonteCarlo&, Orvane&, YearStep&) {}
