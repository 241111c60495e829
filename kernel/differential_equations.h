// The forecast as a system of differential equations: births, deaths, out- and in-migration,
// group change and internal flows as continuous rates, carried through each year by Euler's
// method or by the classical Runge-Kutta method of order 4.
#pragma once
#include <functional>
#include <vector>

class Orvane;

// the derivative y'(t, y) into dy (same length as y)
using Derivative = std::function<void(double t, const std::vector<double>& y, std::vector<double>& dy)>;

// one step of length h from t: method 1 Euler, 4 Runge-Kutta of order 4
void odeStep(int method, const Derivative& f, std::vector<double>& y, double t, double h);

// the forecast of every year by the method in $ODE, in place of the year loop
void differentialEquations(Orvane* orvane);
