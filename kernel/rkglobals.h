// Process-wide values of the kernel that the stages set and read.
#pragma once

// months per forecast period ($MONATE), read by the input stage
extern int MONATE;
// the Monte Carlo switch, its rate limit and the zombie step ($MONTE_CARLO, $RANDOMLIMIT, $ZOMBIE),
// read by the first year initialisation
extern int MONTE_CARLO;
extern int RANDOMLIMIT;
extern int ZOMBIE;
// factor of the Monte Carlo births ($MBF)
extern double MBF;
// $LEAKS, read at the end of a run
extern double LEAKS;
