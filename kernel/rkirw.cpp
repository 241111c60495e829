// External migration (RK::IRW with RK::SZW and RK::ALL): out-migration and in-migration of the
// type level, their targets, and the out-migration base of the regions.
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"
#include "kernel/rkstages.h"

// nothing is printed and the type tables stay as made in this build
int RK::IRW(MonteCarlo&, Orvane&, YearStep&) { return 0; }

// DG4WA and DG4OAR stay 0 in this build
void outMigrationBase(MonteCarlo&, Orvane&, YearStep&) {}
