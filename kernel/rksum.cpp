// The run summary: aggregates and plots at the end of a forecast.
#include "frame/prot.h"
#include "kernel/orvane.h"
#include "kernel/rk.h"

void cleanUpPrognose(Orvane*)
{
    Trace::enter("RKSUM");
    Trace::leave();
}
