// Fitting of the flows between the regions of one internal migration type to their limits.
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// no iteration in this build
int abgleichInnenwanderung(Orvane&, YearStep&, int, LA<4>&, LA<5>&) { return 0; }
