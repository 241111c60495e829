// Change of population group (module W): the moves between groups into DG4WBGv and DG4WBGn.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/year_step.h"

// DG4WBGv and DG4WBGn stay 0 in this build
void groupChange(MonteCarlo&, Orvane&, YearStep&) {}
