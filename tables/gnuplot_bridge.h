// The bridge to gnuplot: finds the program, runs it through a pipe or through a command file
// in the protocol directory, and reports what happened in the protocol.
#pragma once
#include <cstdio>
#include <string>

namespace plot {
// section GNUPLOT of veldor.ini
extern int saveCmd;             // 1: commands into prot/plt<name>.txt, run at plotClose; the file stays
extern int saveLog;             // 1: in file mode the error stream goes to prot/gnuplot.log and is reported
extern std::string background;  // background colour of the plots
} // namespace plot

// reads section GNUPLOT; called once at process start
void plotSetup();
void gnuplotSettings();

// the executable: <installDirectory>gnuplot64/bin/gnuplot when it exists, else gnuplot from the
// search path (with level above 2 a hint with PATH goes to protocol)
std::string plotPath(const std::string& installDirectory, FILE* protocol = nullptr, int level = 0);

// a stream for gnuplot commands, or nullptr ("could not launch gnuplot" is the caller's)
FILE* plotOpen(FILE* protocol, int level, const std::string& installDirectory, const char* name);
// closes the stream; in file mode runs the command file. The status of gnuplot, 0 for no stream.
int plotClose(FILE* protocol, int level, FILE* stream, const std::string& installDirectory, const char* name);

// true when the file is a whole PNG picture: its signature at the start and the end chunk
// (IEND) at the end; a picture cut by a full disk or a killed gnuplot is not
bool plotPictureComplete(const std::string& path);

// common head lines of the plots
const char* plotTerminal();    // set term pngcairo ... background rgb '<background>'
const char* plotSeparator();   // set datafile separator '<column separator>'
