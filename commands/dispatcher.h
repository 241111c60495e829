// The tools of the executable and the process exit status they leave.
#pragma once

#include "platform/exit_status.h"

// the forecast command: the result becomes the exit status
int orvane(int argc, char** argv);
// household forecast, count tables, time series, table adjustment, map conversion
void hhprog(int argc, char** argv);
void dstmak(int argc, char** argv);
int zrgemTool(int argc, char** argv);
void adeton(int argc, char** argv);
int shp2plt(int argc, char** argv);
