// Fitting of the flows between the regions of one internal migration type to their limits.
#include "kernel/run_object.h"
#include "kernel/year_step.h"

// no iteration in this build
int abgleichInnenwanderung(Orvane&, YearStep&, int, LA<4>&, LA<5>&) { return 0; }
