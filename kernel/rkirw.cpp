// External migration (RK::IRW with RK::SZW and RK::ALL): out-migration and in-migration of the
// type level, their targets, and the out-migration base of the regions.
#include "kernel/monte_carlo.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"
#include "kernel/year_step.h"

// nothing is printed and the type tables stay as made in this build
int RK::IRW(MonteCarlo&, Orvane&, YearStep&) { return 0; }

// DG4WA and DG4OAR stay 0 in this build
void outMigrationBase(MonteCarlo&, Orvane&, YearStep&) {}
