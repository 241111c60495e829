// Change of population group (module W): the moves between groups into DG4WBGv and DG4WBGn.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rkstages.h"

// DG4WBGv and DG4WBGn stay 0 in this build
void groupChange(MonteCarlo&, Orvane&, YearStep&) {}
