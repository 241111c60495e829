// The year step.
#include "frame/prot.h"
#include "kernel/montecarlo.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"

// The components of the year (ageing, births, deaths, migration) come with their stages;
// until then a year carries nothing forward.
void RK::PAG(MonteCarlo&, Orvane*)
{
    Trace::enter("RKPAG");
    Trace::leave();
}
