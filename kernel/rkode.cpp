// The differential equation method, which replaces the year loop under $ODE.
#include "platform/protocol.h"
#include "kernel/stages.h"

int ode(double value)
{
    Trace::enter("RKODE");
    Prot::message(SEV_WARNING, "$ODE %g: @odeMissing;", value);
    Trace::leave();
    return 0;
}
