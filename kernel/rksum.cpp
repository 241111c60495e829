// The run summary: aggregates and plots at the end of a forecast.
#include "platform/protocol.h"
#include "kernel/run_object.h"
#include "kernel/stages.h"

void cleanUpPrognose(Orvane*)
{
    Trace::enter("RKSUM");
    Trace::leave();
}
