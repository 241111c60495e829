// The forecast command: options, dictionary, variant maintenance, protocol, the driver.
#pragma once
#include <cstdio>
#include <string>

// the forecast tool: options, dictionary, variant file, protocol, the driver; the exit status
int orvane(int argc, char** argv);

// -c: the callback steps run
extern int callbackFlag;
// -l
extern std::string language;
// the process's own command line, for the protocol head
extern int commandArgc;
extern char** commandArgv;

// runs the front end's script for a callback section (CALLBACK0, CALLBACK2)
void runCallback(const char* section);
// prepares the output directory and opens prot/index.html; fatal when it cannot be opened
void openProtFile();
// the character set test page prot/tutf8.htm
void writeCharsetTest(FILE* out);

