// The differential equation method, which replaces the year loop under $ODE.
#include "frame/prot.h"
#include "kernel/rk.h"

int ode(double value)
{
    Trace::enter("RKODE");
    Prot::message(SEV_WARNING, "$ODE %g: @odeMissing;", value);
    Trace::leave();
    return 0;
}
