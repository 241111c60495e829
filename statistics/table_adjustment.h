// The tool adeton: adjusts the table of a CSV file to its row sums and its column targets
// in the chi-square sense and writes the adjusted table.
#pragma once

// argv: input.csv output.csv; every outcome goes to log.txt in the user's data directory
void adeton(int argc, char** argv);
