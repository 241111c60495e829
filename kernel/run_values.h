// Process-wide values of the kernel that the stages set and read.
#pragma once
#include <map>
#include <string>

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
// $SPARSEGEM of the run: fill percentage below which the population is held sparse
extern int SPARSEGEM;
// number of aggregates of the outputs by DIFF_G, set in the first year
extern int AGGREGATES;
// the key table EVA.csv of the directory, read in every year
extern std::map<std::string, std::string> EVA;
