// The help of the program and of each tool: what it does, each option in one line with an
// example, printed on standard output for --help (and -h where the tool leaves that letter free).
#pragma once
#include <string>

// the overview of all tools, for "orvane --help"
std::string programHelp();

// the help of one tool; empty for a name that is no tool
std::string toolHelp(const std::string& tool);

// true when the tool's command line asks for its help: "--help" in an option's place, or "-h"
// when the tool's own options leave the letter free (option arguments are stepped over)
bool helpAsked(const std::string& tool, int count, char* const* vector);
